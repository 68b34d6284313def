#include "tool/ReferenceModel.h"

#include <CLI/CLI.hpp>

#include <sstream>

namespace tool {

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    parts.push_back(part);
  }
  return parts;
}

// The parser describes what an option takes as "TEXT:{auto,cli}", "UINT:INT in [0 - 9]" or "UINT:POSITIVE".
void takeValue(ReferenceOption& option, const std::string& type) {
  const std::size_t colon = type.find(':');
  const std::string base = type.substr(0, colon);
  const std::string check = colon == std::string::npos ? "" : type.substr(colon + 1);
  option.value = base == "UINT" || base == "INT" || base == "FLOAT" ? "N" : base;
  const std::size_t open = check.find('{');
  if (open != std::string::npos) {
    option.choices = split(check.substr(open + 1, check.find('}') - open - 1), ',');
    option.value.clear();
    for (const std::string& choice : option.choices) {
      option.value += (option.value.empty() ? "" : "|") + choice;
    }
    return;
  }
  option.anyText = base == "TEXT";
  const std::size_t from = check.find('[');
  if (from != std::string::npos) {
    std::string range = check.substr(from + 1, check.find(']') - from - 1);
    const std::size_t dash = range.find(" - ");
    if (dash != std::string::npos) {
      range.replace(dash, 3, " to ");
    }
    option.text += " (" + range + ")";
  } else if (check == "POSITIVE") {
    option.text += " (1 or more)";
  }
}

// What else has to be there, and what must not be.
std::string companions(const CLI::Option& from) {
  std::string text;
  for (const CLI::Option* other : from.get_needs()) {
    text += (text.empty() ? "; only with " : " and ") + other->get_name();
  }
  std::string others;
  for (const CLI::Option* other : from.get_excludes()) {
    others += (others.empty() ? "; not with " : ", ") + other->get_name();
  }
  return text + others;
}

ReferenceOption optionOf(const CLI::Option& from) {
  ReferenceOption option;
  if (from.get_positional()) {
    option.names.push_back(from.get_name(true, false));
  } else {
    for (const std::string& name : from.get_snames()) {
      option.names.push_back("-" + name);
    }
    for (const std::string& name : from.get_lnames()) {
      option.names.push_back("--" + name);
    }
  }
  option.text = from.get_description();
  option.required = from.get_required();
  if (from.get_items_expected_max() > 0) {
    takeValue(option, from.get_type_name());
    option.repeats = from.get_items_expected_max() > 1;
    if (!from.get_default_str().empty()) {
      option.text += "; " + from.get_default_str() + " unless told otherwise";
    }
  }
  option.text += companions(from);
  return option;
}

} // namespace

std::string ReferenceCommand::usage() const {
  std::string line = name.empty() ? "xpacl COMMAND ..." : "xpacl " + name + " [OPTIONS]";
  for (const ReferenceOption& positional : positionals) {
    const std::string shown = positional.names.front() + (positional.repeats ? "..." : "");
    line += " " + (positional.required ? shown : "[" + shown + "]");
  }
  return line;
}

ReferenceCommand referenceOf(const CLI::App& app) {
  ReferenceCommand command;
  command.name = app.get_parent() == nullptr ? "" : app.get_name();
  command.text = app.get_description();
  command.footer = app.get_footer();
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty()) {
      (option->get_positional() ? command.positionals : command.options).push_back(optionOf(*option));
    }
  }
  return command;
}

std::vector<ReferenceCommand> referenceCommands(const CLI::App& program) {
  std::vector<ReferenceCommand> commands;
  for (const CLI::App* app :
       program.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); })) {
    commands.push_back(referenceOf(*app));
  }
  return commands;
}

std::vector<std::string> referenceLines(const std::string& text) {
  return split(text, '\n');
}

} // namespace tool

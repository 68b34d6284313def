#include "tool/ReferenceModel.h"

#include "tool/Command.h"

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

// Takes OptionFacts::type apart.
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
std::string companions(const OptionFacts& from) {
  std::string text;
  for (const std::string& other : from.needed) {
    text += (text.empty() ? "; only with " : " and ") + other;
  }
  std::string others;
  for (const std::string& other : from.excluded) {
    others += (others.empty() ? "; not with " : ", ") + other;
  }
  return text + others;
}

ReferenceOption optionOf(const OptionFacts& from) {
  ReferenceOption option;
  option.names = from.names;
  option.text = from.help;
  option.required = from.required;
  if (from.takesValue) {
    takeValue(option, from.type);
    option.repeats = from.repeats;
    if (!from.defaultText.empty()) {
      option.text += "; " + from.defaultText + " unless told otherwise";
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

ReferenceCommand referenceOf(Command command) {
  const CommandFacts facts = command.facts();
  ReferenceCommand reference;
  reference.name = facts.name;
  reference.text = facts.help;
  reference.footer = facts.footer;
  for (const OptionFacts& option : facts.options) {
    (option.positional ? reference.positionals : reference.options).push_back(optionOf(option));
  }
  return reference;
}

std::vector<ReferenceCommand> referenceCommands(Command program) {
  std::vector<ReferenceCommand> commands;
  for (const Command command : program.subcommands()) {
    commands.push_back(referenceOf(command));
  }
  return commands;
}

std::vector<std::string> referenceLines(const std::string& text) {
  return split(text, '\n');
}

} // namespace tool

#include "tool/Command.h"

#include "tool/Common.h"

#include <CLI/CLI.hpp>

#include <set>
#include <utility>

namespace tool {

namespace {

// The parser answers sets of addresses, whose order is chance.
std::vector<std::string> namesOf(const std::set<CLI::Option*>& chosen,
                                 const std::vector<const CLI::Option*>& declared) {
  std::vector<std::string> names;
  for (const CLI::Option* option : declared) {
    if (chosen.count(const_cast<CLI::Option*>(option)) != 0) {
      names.push_back(option->get_name());
    }
  }
  return names;
}

OptionFacts factsOf(const CLI::Option& option, const std::vector<const CLI::Option*>& declared) {
  OptionFacts facts;
  facts.positional = option.get_positional();
  if (facts.positional) {
    facts.names.push_back(option.get_name(true, false));
  } else {
    for (const std::string& name : option.get_snames()) {
      facts.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
      facts.names.push_back("--" + name);
    }
  }
  facts.help = option.get_description();
  facts.required = option.get_required();
  facts.takesValue = option.get_items_expected_max() > 0;
  facts.repeats = option.get_items_expected_max() > 1;
  facts.type = option.get_type_name();
  facts.defaultText = option.get_default_str();
  facts.needed = namesOf(option.get_needs(), declared);
  facts.excluded = namesOf(option.get_excludes(), declared);
  return facts;
}

// What is wrong with the words of the command line, in the words of the command that they are for.
std::string usageError(const CLI::App& program, const CLI::Error& error, const std::string& firstWord) {
  const CLI::App* command = &program;
  std::string name = program.get_name();
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    name += " " + command->get_name();
  }
  std::string text = name + ": ";
  if (command != &program || firstWord.empty() || firstWord.front() == '-') {
    text += error.what();
  } else {
    text += "there is no command '" + firstWord + "'; the commands are";
    const char* separator = " ";
    for (const CLI::App* one : program.get_subcommands([](const CLI::App*) { return true; })) {
      if (!one->get_group().empty()) {
        text += separator + one->get_name();
        separator = ", ";
      }
    }
  }
  return text + "\n" + name + " --help tells more\n";
}

} // namespace

Option Option::required(bool must) const {
  option_->required(must);
  return *this;
}

Option Option::oneOf(std::initializer_list<const char*> values) const {
  option_->check(CLI::IsMember(std::vector<std::string>(values.begin(), values.end())));
  return *this;
}

Option Option::range(int low, int high) const {
  option_->check(CLI::Range(low, high));
  return *this;
}

Option Option::range(double low, double high) const {
  option_->check(CLI::Range(low, high));
  return *this;
}

Option Option::positive() const {
  option_->check(CLI::PositiveNumber);
  return *this;
}

Option Option::repeated() const {
  option_->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  return *this;
}

Option Option::valueName(const std::string& name) const {
  option_->type_name(name);
  return *this;
}

Option Option::showDefault() const {
  option_->capture_default_str();
  return *this;
}

Option Option::excludes(Option other) const {
  option_->excludes(other.option_);
  return *this;
}

Option Option::needs(Option other) const {
  option_->needs(other.option_);
  return *this;
}

Command Command::subcommand(const std::string& name, const std::string& help) const {
  return Command(*app_->add_subcommand(name, help));
}

Option Command::option(const std::string& name, std::string& value, const std::string& help) const {
  return Option(*app_->add_option(name, value, help));
}

Option Command::option(const std::string& name, std::vector<std::string>& values,
                       const std::string& help) const {
  return Option(*app_->add_option(name, values, help));
}

Option Command::option(const std::string& name, uint32_t& value, const std::string& help) const {
  return Option(*app_->add_option(name, value, help));
}

Option Command::option(const std::string& name, uint64_t& value, const std::string& help) const {
  return Option(*app_->add_option(name, value, help));
}

Option Command::option(const std::string& name, double& value, const std::string& help) const {
  return Option(*app_->add_option(name, value, help));
}

Option Command::flag(const std::string& name, bool& value, const std::string& help) const {
  return Option(*app_->add_flag(name, value, help));
}

Option Command::option(const std::string& name) const {
  return Option(*app_->get_option(name));
}

void Command::footer(const std::string& text) const {
  app_->footer(text);
}

void Command::hide() const {
  app_->group("");
}

void Command::runs(Run& run, Run action) const {
  app_->callback([&run, action = std::move(action)] { run = action; });
}

CommandFacts Command::facts() const {
  CommandFacts facts;
  facts.name = app_->get_parent() == nullptr ? "" : app_->get_name();
  facts.help = app_->get_description();
  facts.footer = app_->get_footer();
  const std::vector<const CLI::Option*> declared = std::as_const(*app_).get_options();
  for (const CLI::Option* option : declared) {
    if (!option->get_group().empty()) {
      facts.options.push_back(factsOf(*option, declared));
    }
  }
  return facts;
}

std::vector<Command> Command::subcommands() const {
  std::vector<Command> commands;
  for (CLI::App* app : app_->get_subcommands([](CLI::App* each) { return !each->get_group().empty(); })) {
    commands.emplace_back(*app);
  }
  return commands;
}

Program::Program(const std::string& name, const std::string& version, const std::string& help)
    : app_(std::make_unique<CLI::App>(help)) {
  app_->name(name);
  app_->require_subcommand(1);
  app_->set_version_flag("--version", version);
}

Program::~Program() = default;

std::optional<int> Program::parse(int argc, const char* const* argv) {
  const std::string firstWord = argc > 1 ? argv[1] : "";
  app_->failure_message([firstWord](const CLI::App* app, const CLI::Error& error) {
    return usageError(*app, error, firstWord);
  });
  try {
    app_->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app_->exit(error) == 0 ? exitDone : exitBadInput;
  }
  return std::nullopt;
}

LooseCommand::LooseCommand() : app_(std::make_unique<CLI::App>()) {
  app_->set_help_flag();
}

LooseCommand::~LooseCommand() = default;

void LooseCommand::parse(const std::vector<std::string>& words) {
  std::vector<std::string> last(words.rbegin(), words.rend()); // the parser takes them from the end
  try {
    app_->parse(last);
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
}

} // namespace tool

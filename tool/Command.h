#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// How commands declare themselves and their options. Command.cpp alone sees the library that parses, because
// its headers take longer to compile than most commands do.

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace tool {

// What a command does when its words were taken. Answers the exit status.
using Run = std::function<int()>;

// An option or a positional argument of a command: a handle, valid as long as its program. Every function
// answers the option itself, so that they can be chained.
class Option {
public:
  explicit Option(CLI::Option& option) : option_(&option) {}

  // Whether it must be given; it need not unless this is called.
  Option required(bool must = true) const;
  // Other values are refused; for numbers, both ends are taken.
  Option oneOf(std::initializer_list<const char*> values) const;
  Option range(int low, int high) const;
  Option range(double low, double high) const;
  Option positive() const;
  // May be given several times, with one value each.
  Option repeated() const;
  // What stands for its value in the help.
  Option valueName(const std::string& name) const;
  // Lets the help tell the value that the variable has now.
  Option showDefault() const;
  // Refuses it, and the other one, when both are given.
  Option excludes(Option other) const;
  // Refuses it when the other one is not given.
  Option needs(Option other) const;

private:
  CLI::Option* option_;
};

// What an option was declared as.
struct OptionFacts {
  bool positional = false;
  std::vector<std::string> names; // "-h" and "--help"; one name without dashes for a positional
  std::string help;
  bool required = false;
  bool takesValue = false; // no flag
  bool repeats = false;
  std::string type; // "TEXT", "TEXT:{auto,cli}", "UINT:INT in [0 - 9]" or "UINT:POSITIVE"
  std::string defaultText;
  std::vector<std::string> needed;   // names of other options, in the order of their declarations
  std::vector<std::string> excluded; // likewise
};

// What a command was declared as.
struct CommandFacts {
  std::string name; // empty for the program itself
  std::string help;
  std::string footer;
  std::vector<OptionFacts> options; // in the order of their declarations
};

// A command, or the program above all of them: a handle, valid as long as its program.
class Command {
public:
  explicit Command(CLI::App& app) : app_(&app) {}

  Command subcommand(const std::string& name, const std::string& help) const;

  // "--memory", "-o,--output", or "CONFIG" for a positional argument. The variable must outlive the parsing,
  // and keeps its value unless the option is given. A vector takes any number of values.
  Option option(const std::string& name, std::string& value, const std::string& help = "") const;
  Option option(const std::string& name, std::vector<std::string>& values,
                const std::string& help = "") const;
  Option option(const std::string& name, uint32_t& value, const std::string& help = "") const;
  Option option(const std::string& name, uint64_t& value, const std::string& help = "") const;
  Option option(const std::string& name, double& value, const std::string& help = "") const;
  Option flag(const std::string& name, bool& value, const std::string& help = "") const;
  // One that was declared before.
  Option option(const std::string& name) const;

  // The text behind the options in the help. Subcommands that are added later have it until they set their
  // own.
  void footer(const std::string& text) const;
  // Leaves the command out wherever the program lists its commands.
  void hide() const;
  // Puts `action` into `run` when the words are for this command.
  void runs(Run& run, Run action) const;

  CommandFacts facts() const;
  // Those that are not hidden, in the order of their declarations.
  std::vector<Command> subcommands() const;

private:
  CLI::App* app_;
};

// A program whose first word is a command.
class Program {
public:
  Program(const std::string& name, const std::string& version, const std::string& help);
  ~Program();

  Command command() const { return Command(*app_); }
  // Takes the words. Answers nothing when there is a command to run. Otherwise answers the exit status:
  // --help or --version was answered on standard output, or what is wrong was said on standard error.
  std::optional<int> parse(int argc, const char* const* argv);

private:
  std::unique_ptr<CLI::App> app_;
};

// What is wrong with words; in one line or several.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// A command whose words stand elsewhere than on the command line. It has no --help.
class LooseCommand {
public:
  LooseCommand();
  ~LooseCommand();

  Command command() const { return Command(*app_); }
  // Takes the words. Raises UsageError when something is wrong with them.
  void parse(const std::vector<std::string>& words);

private:
  std::unique_ptr<CLI::App> app_;
};

} // namespace tool

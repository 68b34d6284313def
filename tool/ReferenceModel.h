#pragma once

#include <string>
#include <vector>

// A command as --help shows it, taken apart.

namespace tool {

class Command;

// An option or a positional argument.
struct ReferenceOption {
  std::vector<std::string> names;   // "-h" and "--help"; one name without dashes for a positional
  std::string value;                // "TEXT", "N", "auto|cli"; empty for a flag
  std::vector<std::string> choices; // the values, where only some are taken
  std::string text;                 // what it means, with its range and default
  bool required = false;
  bool repeats = false;
  bool anyText = false; // takes any text: a file, a port, a packet
};

struct ReferenceCommand {
  std::string name; // "plan"; empty for the program itself
  std::string text;
  std::string footer; // examples and notes
  std::vector<ReferenceOption> positionals;
  std::vector<ReferenceOption> options;
  // "xpacl plan [OPTIONS] CONFIG"
  std::string usage() const;
};

ReferenceCommand referenceOf(Command command);
// Those that --help shows, in its order.
std::vector<ReferenceCommand> referenceCommands(Command program);

// Lines of a text without their ends.
std::vector<std::string> referenceLines(const std::string& text);

} // namespace tool

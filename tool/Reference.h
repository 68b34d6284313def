#pragma once

#include <string>
#include <vector>

// What --help says, for people and programs that read it elsewhere: manual pages, the command reference of
// the documentation, and completion for shells. All are made from the same declarations as --help, so that
// none can say something else.

namespace tool {

class Command;

struct ReferenceFile {
  std::string name; // without folders
  std::string text;
};

// One page for the program and one for each command: xpacl.1, xpacl-plan.1 and so on, in the man macros of
// roff.
std::vector<ReferenceFile> manPages(Command program, const std::string& version);
// One text about all commands.
std::string markdownReference(Command program);
// Completion of commands, options, and the values of those that have a fixed choice; file names elsewhere.
std::string bashCompletion(Command program);
std::string zshCompletion(Command program);

} // namespace tool

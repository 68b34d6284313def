#include "Vane/Sanitizer.h"

#include "tool/Commands.h"
#include "tool/Common.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <string>

namespace {

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

int main(int argc, char** argv) {
  CLI::App program{
      "Compiles access lists into the TCAM rows of a simulated switch chip, judges packets by them, and "
      "tells what a list costs."};
  program.name("xpacl");
  program.require_subcommand(1);
  program.set_version_flag("--version", "xpacl " XPACL_VERSION);
  program.footer(
      "Exit status: 0 done, 1 the answer is no (does not fit, found a difference), 2 bad input or usage.\n"
      "xpacl COMMAND --help shows each command with examples.");
  const std::string firstWord = argc > 1 ? argv[1] : "";
  program.failure_message([&firstWord](const CLI::App* app, const CLI::Error& error) {
    return usageError(*app, error, firstWord);
  });
  tool::Run run;
  tool::addPlan(program, run);
  tool::addReplay(program, run);
  tool::addShow(program, run);
  tool::addTrace(program, run);
  tool::addWho(program, run);
  tool::addUpdate(program, run);
  tool::addAudit(program, run);
  tool::addRun(program, run);
  tool::addVerify(program, run);
  tool::addLint(program, run);
  tool::addDiff(program, run);
  tool::addCheckCertificate(program, run);
  tool::addConvert(program, run);
  tool::addReport(program, run);
  tool::addTop(program, run);
  tool::addReference(program, run);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? tool::exitDone : tool::exitBadInput;
  }
  try {
    const int status = run();
    std::cout.flush();
    if (!std::cout) {
      std::cerr << "xpacl: standard output cannot be written\n";
      return tool::exitBadInput;
    }
#ifdef VANE_SANITIZED
    return status; // what was lost is looked for when the process ends
#else
    // Nothing is left to be written; the session of the command goes with the process.
    std::cerr.flush();
    std::fflush(nullptr);
    std::_Exit(status);
#endif
  } catch (const tool::Exit& exit) {
    std::cout.flush();
    if (*exit.what() != '\0') {
      std::cerr << "xpacl: " << exit.what() << '\n';
    }
    return exit.status();
  } catch (const std::bad_alloc&) {
    std::cerr << "xpacl: out of memory\n";
  } catch (const std::exception& error) {
    std::cerr << "xpacl: " << error.what() << '\n';
  }
  return tool::exitBadInput;
}

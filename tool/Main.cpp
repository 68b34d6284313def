#include "Vane/Sanitizer.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <optional>

int main(int argc, char** argv) {
  tool::Program xpacl(
      "xpacl", "xpacl " XPACL_VERSION,
      "Compiles access lists into the TCAM rows of a simulated switch chip, judges packets by them, and "
      "tells what a list costs.");
  const tool::Command program = xpacl.command();
  program.footer(
      "Exit status: 0 done, 1 the answer is no (does not fit, found a difference), 2 bad input or usage.\n"
      "xpacl COMMAND --help shows each command with examples.");
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
  if (const std::optional<int> status = xpacl.parse(argc, argv)) {
    return *status;
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

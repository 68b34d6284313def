#pragma once

#include "tool/Command.h"

// One function a command: adds the subcommand to the program and sets what it runs. The function that runs
// answers the exit status.

namespace tool {

void addPlan(Command program, Run& run);
void addReplay(Command program, Run& run);
void addShow(Command program, Run& run);
void addTrace(Command program, Run& run);
void addWho(Command program, Run& run);
void addUpdate(Command program, Run& run);
void addAudit(Command program, Run& run);
void addRun(Command program, Run& run);
void addVerify(Command program, Run& run);
void addLint(Command program, Run& run);
void addDiff(Command program, Run& run);
void addCheckCertificate(Command program, Run& run);
void addConvert(Command program, Run& run);
void addReport(Command program, Run& run);
void addTop(Command program, Run& run);
void addReference(Command program, Run& run);

} // namespace tool

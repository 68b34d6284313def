#pragma once

#include <CLI/CLI.hpp>

#include <functional>

// One function a command: adds the subcommand to the program and sets what it runs. The function that runs
// answers the exit status.

namespace tool {

using Run = std::function<int()>;

void addPlan(CLI::App& program, Run& run);
void addReplay(CLI::App& program, Run& run);
void addShow(CLI::App& program, Run& run);
void addTrace(CLI::App& program, Run& run);
void addWho(CLI::App& program, Run& run);
void addUpdate(CLI::App& program, Run& run);
void addAudit(CLI::App& program, Run& run);
void addRun(CLI::App& program, Run& run);
void addVerify(CLI::App& program, Run& run);
void addLint(CLI::App& program, Run& run);
void addDiff(CLI::App& program, Run& run);
void addCheckCertificate(CLI::App& program, Run& run);
void addConvert(CLI::App& program, Run& run);
void addReport(CLI::App& program, Run& run);
void addTop(CLI::App& program, Run& run);
void addReference(CLI::App& program, Run& run);

} // namespace tool

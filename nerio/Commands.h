#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace Nerio {

/** What the process returns: input that cannot be taken is told from a job that failed. */
enum ExitStatus : int { done = 0, jobFailed = 1, badInput = 2 };

/** A subcommand adds itself to the command line and runs through its callback, which sets the status. */
void addRun(CLI::App& app, int& status);
void addScript(CLI::App& app, int& status);
void addLookup(CLI::App& app, int& status);
void addRoutes(CLI::App& app, int& status);
void addCapacity(CLI::App& app, int& status);
void addApply(CLI::App& app, int& status);
void addDiff(CLI::App& app, int& status);
void addDump(CLI::App& app, int& status);
void addVerify(CLI::App& app, int& status);
void addImport(CLI::App& app, int& status);
void addLayout(CLI::App& app, int& status);
void addDecode(CLI::App& app, int& status);
void addRegisters(CLI::App& app, int& status);
void addShow(CLI::App& app, int& status);
void addWatch(CLI::App& app, int& status);
void addRecord(CLI::App& app, int& status);
void addCompletion(CLI::App& app, int& status);
void addManual(CLI::App& app, int& status);

}  // namespace Nerio

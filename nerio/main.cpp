#include <csignal>
#include <cstdio>
#include <exception>
#include <fmt/format.h>

#include "Belmo/Exceptions.h"

#include "nerio/Commands.h"
#include "nerio/Interrupt.h"

namespace {

int runCommand(int argc, char** argv) {
    CLI::App app("Drives the tables of a simulated switch.", "nerio");
    app.require_subcommand(1);
    app.set_version_flag("--version", NERIO_VERSION);
    app.failure_message([](CLI::App const* command, CLI::Error const& error) {
        std::string text = error.what();
        // A word that is no subcommand is what is wrong, not that a subcommand is missing.
        if (auto const unknown = command->remaining();
            error.get_name() == "RequiredError" && !unknown.empty()) {
            text = fmt::format("unknown {} {}", unknown.front().starts_with('-') ? "option" : "subcommand",
                               unknown.front());
        }
        return fmt::format("nerio: {}; nerio --help says more\n", text);
    });
    int status = Nerio::done;
    Nerio::addRun(app, status);
    Nerio::addScript(app, status);
    Nerio::addRoutes(app, status);
    Nerio::addCapacity(app, status);
    Nerio::addImport(app, status);
    Nerio::addLookup(app, status);
    Nerio::addApply(app, status);
    Nerio::addDump(app, status);
    Nerio::addDiff(app, status);
    Nerio::addVerify(app, status);
    Nerio::addLayout(app, status);
    Nerio::addDecode(app, status);
    Nerio::addRegisters(app, status);
    Nerio::addShow(app, status);
    Nerio::addWatch(app, status);
    Nerio::addRecord(app, status);
    Nerio::addCompletion(app, status);
    Nerio::addManual(app, status);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? Nerio::done : Nerio::badInput;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        fmt::print(stderr, "nerio: cannot write to standard output\n");
        return Nerio::jobFailed;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that has gone is told by the failing write.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        Nerio::interruptsAreSaid();
        return runCommand(argc, argv);
    } catch (std::exception const& failure) {
        std::fprintf(stderr, "nerio: %s\n", failure.what());
        return Nerio::jobFailed;
    }
}

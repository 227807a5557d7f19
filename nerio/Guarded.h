#pragma once

#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <system_error>

#include "Belmo/Exceptions.h"

#include "agent/StateFile.h"
#include "nerio/Commands.h"

namespace Nerio {

/** Input that a command cannot take: the text says what and where, in one line. */
class BadInput : public Belmo::Exception {
public:
    using Exception::Exception;
    char const* typeName() const noexcept override { return "BadInput"; }
};

/** Runs a command; what it throws is printed behind its name and becomes its exit status. */
template <class Run>
int guarded(char const* command, Run const& run) {
    auto const failed = [command](std::exception const& failure, int status) {
        fmt::print(stderr, "nerio {}: {}\n", command, failure.what());
        return status;
    };
    try {
        return run();
    } catch (Agent::StateFileException const& failure) {
        return failed(failure, badInput);
    } catch (BadInput const& failure) {
        return failed(failure, badInput);
    } catch (std::system_error const& failure) {
        // Output that is lost is told in the end, by whatever way it was.
        return std::ferror(stdout) != 0 ? jobFailed : failed(failure, jobFailed);
    } catch (std::exception const& failure) {
        return failed(failure, jobFailed);
    }
}

}  // namespace Nerio

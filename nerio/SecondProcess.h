#pragma once

#include <string>
#include <vector>

namespace Nerio {

/** How a process ended and what it printed on standard output. */
struct ProcessResult {
    int status = 0;
    std::string output;
};

/** Runs this very command in a process of its own and waits for it; its standard error is ours. */
ProcessResult runSelf(std::vector<std::string> const& arguments);

}  // namespace Nerio

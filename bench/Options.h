#pragma once

#include <string>

namespace NerioBench {

/** What may be given to nerio_bench beside the options of the benchmark library. */
struct Options {
    /** A folder of filter sets to load; without it rules are made in their likeness. */
    std::string filterSets;
    /** A list of routes to load; without it one is made in the likeness of a router's. */
    std::string routes;
    /** A benchmark found what must not be: the process says so when it ends. */
    bool hasFailed = false;
};

Options& options();

/** Benchmarks whose arguments depend on the options. */
void registerFilterSets();
void registerRoutes();

}  // namespace NerioBench

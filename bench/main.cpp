#include <benchmark/benchmark.h>
#include <string_view>

#include "Options.h"

namespace NerioBench {

Options& options() {
    static Options all;
    return all;
}

namespace {

/** Takes an option of our own; whether the argument is one. */
bool isOwn(std::string_view argument) {
    struct Own {
        std::string_view name;
        std::string Options::*value;
    };
    for (auto const& [name, value] :
         {Own{"--filter_sets=", &Options::filterSets}, Own{"--routes=", &Options::routes}}) {
        if (!argument.starts_with(name)) continue;
        options().*value = argument.substr(name.size());
        return true;
    }
    return false;
}

}  // namespace

}  // namespace NerioBench

int main(int argc, char** argv) {
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (!NerioBench::isOwn(argv[i])) argv[kept++] = argv[i];
    }
    benchmark::Initialize(&kept, argv);
    if (benchmark::ReportUnrecognizedArguments(kept, argv)) return 2;
    NerioBench::registerFilterSets();
    NerioBench::registerRoutes();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return NerioBench::options().hasFailed ? 1 : 0;
}

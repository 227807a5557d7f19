#include <benchmark/benchmark.h>
#include <string_view>

#include "Options.h"

namespace NerioBench {

Options& options() {
    static Options all;
    return all;
}

void registerFilterSets();

}  // namespace NerioBench

int main(int argc, char** argv) {
    constexpr std::string_view filterSets = "--filter_sets=";
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        std::string_view const argument = argv[i];
        if (argument.starts_with(filterSets)) {
            NerioBench::options().filterSets = argument.substr(filterSets.size());
        } else {
            argv[kept++] = argv[i];
        }
    }
    benchmark::Initialize(&kept, argv);
    if (benchmark::ReportUnrecognizedArguments(kept, argv)) return 2;
    NerioBench::registerFilterSets();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

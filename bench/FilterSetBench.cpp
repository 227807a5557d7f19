// Filter sets as they are used: each rule goes to the physical table that its addresses fit. With
// --filter_sets=FOLDER every file there is loaded, otherwise rules that are made in their likeness.
#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <random>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTableAclHashes.h"
#include "Options.h"
#include "agent/FilterSet.h"
#include "agent/TextFile.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;

/** A pipeline's tables for addresses of either kind and of both. */
struct Tables {
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework{profile, chip, NerioSwitchApi::memoryShadowStore()};
    std::array<Belmo::Ptr<AclHashTable>, 3> tables;

    Tables() {
        for (std::size_t i = 0; i < tables.size(); ++i) {
            tables[i] = aclHashTableFactory("acl" + std::to_string(i), 0, static_cast<U8>(i));
            framework.tableIs(tables[i], NerioSwitchApi::StartMode::cold);
        }
    }
};

/** What there is to load of a set, and what no lookup holds. */
struct Load {
    std::vector<Agent::FilterKey> keys;
    std::size_t rules = 0;
    std::size_t portRanges = 0;
    std::size_t otherMisfits = 0;
};

Load loadOf(std::vector<Agent::FilterRule> const& rules) {
    Load load{.keys = {}, .rules = rules.size()};
    Agent::ProtocolNumbers protocols;
    for (auto const& rule : rules) {
        auto const key = Agent::filterKeyOf(rule, 1, protocols);
        if (!key.misfit) {
            load.keys.push_back(key);
        } else if (*key.misfit == Agent::Misfit::portRange) {
            ++load.portRanges;
        } else {
            ++load.otherMisfits;
        }
    }
    return load;
}

/** A number that is small more often than not, as the ports and lengths of rules are. */
U32 skewed(std::mt19937_64& random, U32 bound) {
    return static_cast<U32>(random() % (random() % bound + 1));
}

/** Rules that cluster in some networks, mostly of long prefixes, with one well-known port or none. */
std::vector<Agent::FilterRule> likelyRules(std::size_t count) {
    std::mt19937_64 random(20266);
    std::vector<U32> networks(64);
    for (auto& network : networks)
        network = static_cast<U32>(random());
    auto const prefix = [&] {
        if (random() % 10 == 0) return Lanvo::Prefix();
        auto const length = static_cast<U8>(32 - skewed(random, 16));
        U32 const address = networks[skewed(random, 64)] ^ static_cast<U32>(random() & 0xFFFF);
        return Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(length)), length);
    };
    std::vector<Agent::FilterRule> rules(count);
    for (auto& rule : rules) {
        rule.source = prefix();
        rule.destination = prefix();
        if (random() % 10 != 0) rule.protocol = static_cast<U8>(random() % 3 == 0 ? 17 : 6);
        if (!rule.protocol) continue;
        auto const port = static_cast<U16>(skewed(random, 2048));
        if (random() % 2 == 0) rule.destinationPorts = {port, port};
        if (random() % 12 == 0) rule.sourcePorts = {1024, 65535};
    }
    return rules;
}

void filterSet(benchmark::State& state, Load const& load) {
    std::array<std::size_t, 3> rows{};
    double moves = 0;
    double failed = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            Tables all;
            state.ResumeTiming();
            for (std::size_t i = 0; i < load.keys.size(); ++i) {
                auto const& [key, physTableIdx, misfit] = load.keys[i];
                NerioSwitch::HwAclRule rule;
                rule.priorityIs(1 + i % 63).counterIs(i % 4096);
                all.tables[physTableIdx]->entryIs(key, NerioSwitch::AclHashResult().ruleIs(0, rule));
            }
            state.PauseTiming();
            moves = failed = 0;
            for (std::size_t table = 0; table < all.tables.size(); ++table) {
                auto const& convertor = *all.tables[table]->hashConvertor();
                rows[table] = convertor.rowsInUse();
                failed += static_cast<double>(convertor.failedPlacements());
                for (std::size_t length = 0; length < convertor.moveHistogram().size(); ++length)
                    moves += static_cast<double>(length * convertor.moveHistogram()[length]);
            }
        }
        state.ResumeTiming();
    }
    auto const count = static_cast<double>(load.keys.size());
    state.SetItemsProcessed(static_cast<std::int64_t>(load.keys.size()) * state.iterations());
    state.counters["rules"] = static_cast<double>(load.rules);
    state.counters["portRanges"] = static_cast<double>(load.portRanges);
    state.counters["otherMisfits"] = static_cast<double>(load.otherMisfits);
    for (std::size_t table = 0; table < rows.size(); ++table)
        state.counters["fill" + std::to_string(table)] = static_cast<double>(rows[table]) / (2 * 4096);
    state.counters["movesPerRule"] = moves / count;
    state.counters["failed"] = failed;
}

void registerLoad(std::string const& name, std::vector<Agent::FilterRule> const& rules) {
    benchmark::RegisterBenchmark(("filterSet/" + name).c_str(), [load =
                                                                     loadOf(rules)](benchmark::State& state) {
        filterSet(state, load);
    })->Unit(benchmark::kMicrosecond);
}

}  // namespace

namespace NerioBench {

void registerFilterSets() {
    if (options().filterSets.empty()) {
        for (std::size_t const count : {1000u, 10000u})
            registerLoad("likely" + std::to_string(count), likelyRules(count));
        return;
    }
    try {
        std::vector<std::filesystem::path> files;
        for (auto const& file : std::filesystem::directory_iterator(options().filterSets))
            files.push_back(file.path());
        std::sort(files.begin(), files.end());
        for (auto const& file : files) {
            registerLoad(file.stem().string(), Agent::filterRulesFromText(Agent::textOfFile(file.string())));
        }
    } catch (std::exception const& failure) {
        std::fprintf(stderr, "--filter_sets=%s: %s\n", options().filterSets.c_str(), failure.what());
        std::exit(2);
    }
}

}  // namespace NerioBench

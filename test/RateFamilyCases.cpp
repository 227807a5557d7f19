#include "RateFamilyCases.h"

#include "NerioSwitchTable/NerioTableCopp.h"
#include "NerioSwitchTable/NerioTableStormControl.h"

namespace NerioTest {

using namespace NerioSwitchTable;
using Agent::Json;

namespace {

/**
 * Now and then what a row of zeros says. Increments have no more bits than a row, since a pipeline's share is
 * taken of all of them, and would be another one after a restart.
 */
CoppEntry randomCoppEntry(Random& random) {
    auto const number = [&] { return below(random, 8) == 0 ? U32{0} : static_cast<U32>(random()); };
    return CoppEntry()
        .resultIs(number())
        .intervalIs(static_cast<float>(number() & 0xFFFFFF) / 4)
        .incrementIs(number() & 0x3FFFF)
        .scaleFactorIs(number());
}

/** The word behind the CPU says whole limits; a word of 0 is the default one. */
Json coppFromHardware(Json const& key, Json const& result) {
    auto const entry = Agent::fromJson<CoppEntry>(result, Agent::Place());
    CoppEntry back;
    if (key == 0) {
        back.intervalIs(static_cast<float>(static_cast<U32>(entry.interval())));
    } else {
        back.incrementIs(entry.increment()).scaleFactorIs(entry.scaleFactor() & 7);
    }
    return back == CoppEntry() ? Json() : Agent::toJson(back);
}

/** A start writes every entry to both pipelines and behind the CPU. A write that is cut off leaves limiters
 * that differ, so that the agent comes back with a word on each key. */
FamilyCase coppCase() {
    FamilyCase copp{{"copp", "copp", {}},
                    [](Random& random, auto const&) { return Json(below(random, 15)); },
                    [](Random& random, auto const&) { return Agent::toJson(randomCoppEntry(random)); },
                    coppFromHardware};
    copp.restartWrites = [](Json const& key, Json const& result) {
        return coppFromHardware(key, result).is_null() ? U64{0} : U64{3};
    };
    for (U32 key = 0; key <= 14; ++key)
        copp.setAfterCut.emplace_back(key);
    return copp;
}

StormControlEntryKey randomStormKey(Random& random, NerioSwitch::ProfileInfo const& profile) {
    return {below(random, profile.numPorts), static_cast<StormControlClass>(1 + below(random, 4))};
}

Json stormFromHardware(Json const& key, Json const& result) {
    auto const entry = Agent::fromJson<StormControlEntry>(result, Agent::Place());
    StormControlEntry back;
    if (key["trafficClass"] == "stormControlInterval") {
        back.intervalIs(entry.interval());
        return back == StormControlEntry() ? Json() : Agent::toJson(back);
    }
    U32 const word =
        (entry.scaleFactor() & 7) << 20 | (entry.enabled() ? 1u << 19 : 0u) | (entry.increment() & 0x3FFFF);
    if (word == 0x3FFFF) return {};
    return Agent::toJson(back.enabledIs(entry.enabled())
                             .scaleFactorIs(entry.scaleFactor() & 7)
                             .incrementIs(word & ((word << 18) - 1)));
}

FamilyCase stormCase() {
    auto storm = familyCase<StormControlTable>("stormControl", randomStormKey);
    storm.comesBack = stormFromHardware;
    storm.restartWrites = [](Json const& key, Json const& result) {
        return stormFromHardware(key, result).is_null() ? U64{0} : U64{1};
    };
    return storm;
}

}  // namespace

std::vector<FamilyCase> rateFamilyCases() {
    return {coppCase(), stormCase()};
}

}  // namespace NerioTest

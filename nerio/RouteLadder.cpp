#include "nerio/RouteLadder.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

namespace Nerio {

using Agent::Json;
using Agent::RouteStages;
using NerioSwitchTable::LpmStage;

namespace {

StageLoad directLoad(NerioSwitchTable::Lpm11Table const& table, NerioSwitch::ProfileInfo const& profile) {
    return {.longest = 11,
            .shortest = 0,
            .rowsInUse = table.entries().size(),
            .rows = U64{profile.numVrfs} << 11};
}

StageLoad hashedLoad(NerioSwitchTable::LpmBaseTable const& table, LpmStage const& stage) {
    auto const& convertor = *table.hashConvertor();
    return {.longest = stage.number,
            .shortest = stage.prefixBaseLen,
            .rowsInUse = convertor.rowsInUse(),
            .rows = U64{convertor.tableSize()} * convertor.numHashTables()};
}

Json toJson(StageLoad const& load) {
    return {{"routes", load.routes},
            {"placed", load.placed()},
            {"waiting", load.waiting},
            {"rowsInUse", load.rowsInUse},
            {"rows", load.rows}};
}

}  // namespace

StageLoad RouteLoad::all() const {
    StageLoad all{.longest = 32};
    for (auto const& stage : stages) {
        all.routes += stage.routes;
        all.waiting += stage.waiting;
        all.rowsInUse += stage.rowsInUse;
        all.rows += stage.rows;
    }
    return all;
}

Json toJson(RouteLoad const& load) {
    auto json = toJson(load.all());
    json["startWrites"] = load.startWrites;
    json["registerWrites"] = load.registerWrites;
    json["milliseconds"] = load.milliseconds;
    json["stages"] = Json::array();
    for (auto const& stage : load.stages) {
        Json one{{"stage", stage.longest}};
        one.update(toJson(stage));
        json["stages"].push_back(std::move(one));
    }
    return json;
}

namespace {

/** The register writes that it took to bring up the stages. */
std::size_t cameUp(Switch& target, Agent::RouteStages const& stages, NerioSwitchApi::StartMode mode) {
    RouteLadder::checkProfile(target.profile());
    target.takeWriteCount();
    for (auto const& table : stages.tables())
        target.adopt({table->name(), table->name(), {}}, table, mode);
    return target.takeWriteCount();
}

}  // namespace

RouteLadder::RouteLadder(Switch& target, NerioSwitchApi::StartMode mode)
    : target_(target),
      stages_(RouteStages::made()),
      startWrites_(cameUp(target, stages_, mode)),
      agent_(std::make_unique<Agent::RouteAgent>(stages_)) {}

void RouteLadder::checkProfile(NerioSwitch::ProfileInfo const& profile) {
    if (profile.numVrfs != 4 && profile.numVrfs != 8 && profile.numVrfs != 32) {
        throw Belmo::RangeException(
            fmt::format("routes take 4, 8 or 32 VRFs; the profile has {}", profile.numVrfs));
    }
    if (profile.numProcessors(NerioSwitch::TableLayoutEnum::tableLayoutL3) == 0)
        throw Belmo::RangeException("routes take an L3 processor; the profile has none");
}

RouteLoad RouteLadder::reconciled() {
    agent_->reconciled();
    return load();
}

RouteLoad RouteLadder::load() const {
    RouteLoad load;
    load.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin_).count();
    load.startWrites = startWrites_;
    load.registerWrites = target_.takeWriteCount();
    load.stages.push_back(directLoad(*stages_.direct, target_.profile()));
    for (std::size_t i = 0; i < stages_.hashed.size(); ++i)
        load.stages.push_back(hashedLoad(*stages_.hashed[i], NerioSwitchTable::lpmStages[i]));
    for (std::size_t number = 0; number < load.stages.size(); ++number) {
        auto const counts = agent_->counts(number);
        load.stages[number].routes = counts.routes;
        load.stages[number].waiting = counts.waitingRoutes;
    }
    return load;
}

Agent::Verification RouteLadder::verify() const {
    Agent::Verification all;
    for (auto const& table : stages_.tables()) {
        auto verification = target_.verify(*table);
        all.rows += verification.rows;
        std::ranges::move(verification.differences, std::back_inserter(all.differences));
    }
    return all;
}

}  // namespace Nerio

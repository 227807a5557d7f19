#include "agent/RouteAgent.h"

#include <algorithm>
#include <utility>

#include "Belmo/Assert.h"

#include "agent/RouteStage.h"
#include "agent/ShortRoutes.h"

namespace Agent {

using Lanvo::IpAddr;
using NerioSwitch::LpmKey;
using NerioSwitch::NexthopIndexes;
using NerioSwitchTable::EntryCellResult;

RouteStages RouteStages::made() {
    using namespace NerioSwitchTable;
    return {lpm11TableFactory("lpm11"),
            {lpm14TableFactory("lpm14"), lpm17TableFactory("lpm17"), lpm20TableFactory("lpm20"),
             lpm23TableFactory("lpm23"), lpm26TableFactory("lpm26"), lpm29TableFactory("lpm29"),
             lpm32TableFactory("lpm32")}};
}

std::array<Belmo::Ptr<NerioSwitchApi::SwTable>, RouteStages::count> RouteStages::tables() const {
    std::array<Belmo::Ptr<NerioSwitchApi::SwTable>, count> all;
    all[0] = direct;
    std::copy(hashed.begin(), hashed.end(), all.begin() + 1);
    return all;
}

RouteAgent::RouteAgent(RouteStages stages) : stages_(std::move(stages)) {
    for (auto const& table : stages_.tables())
        BELMO_ASSERT(table && table->initialized());
    numVrfs_ = stages_.direct->profile()->numVrfs;
    shortRoutes_ = std::make_unique<ShortRoutes>(stages_.direct, numVrfs_);
    reconciling_ = shortRoutes_->holdsEntries();
    for (std::size_t i = 0; i < hashed_.size(); ++i) {
        hashed_[i] = std::make_unique<RouteStage>(stages_.hashed[i], observer_);
        reconciling_ = reconciling_ || hashed_[i]->holdsEntries();
        hashed_[i]->adopt();
    }
    shortRoutes_->reconcilingIs(reconciling_);
    for (auto const& stage : hashed_)
        stage->reconcilingIs(reconciling_);
}

RouteAgent::~RouteAgent() = default;

bool RouteAgent::canBe(LpmKey const& route) const {
    return route.vrf() < numVrfs_ && !route.prefix().isNull();
}

void RouteAgent::check(LpmKey const& route, NexthopIndexes nexthop) const {
    if (route.vrf() >= numVrfs_)
        throw Belmo::RangeException("Agent::RouteAgent::vrf >= ProfileInfo::numVrfs not allowed");
    if (route.prefix().isNull())
        throw Belmo::RangeException("Agent::RouteAgent::prefix == Lanvo::Prefix::null not allowed");
    if (!nexthop.valid()) {
        throw Belmo::RangeException(
            "Agent::RouteAgent::nexthop == NerioSwitch::NexthopIndexes::null not allowed");
    }
    if (nexthop.value() > EntryCellResult::maxNexthop)
        throw Belmo::RangeException(EntryCellResult::nexthopRangeText);
}

void RouteAgent::routeIs(LpmKey const& route, NexthopIndexes nexthop) {
    check(route, nexthop);
    auto const number = static_cast<U16>(nexthop.value());
    std::size_t const stage = RouteStages::numberOf(route.prefix().len());
    if (stage == 0) {
        shortRoutes_->routeIs(route, number);
    } else {
        hashed_[stage - 1]->routeIs(route, number);
    }
}

bool RouteAgent::routeDel(LpmKey const& route) {
    if (!canBe(route)) return false;
    std::size_t const stage = RouteStages::numberOf(route.prefix().len());
    return stage == 0 ? shortRoutes_->routeDel(route) : hashed_[stage - 1]->routeDel(route);
}

void RouteAgent::routeDelAll() {
    shortRoutes_->routeDelAll();
    for (auto const& stage : hashed_)
        stage->routeDelAll();
}

std::optional<NexthopIndexes> RouteAgent::route(LpmKey const& route) const {
    if (!canBe(route)) return std::nullopt;
    std::size_t const stage = RouteStages::numberOf(route.prefix().len());
    auto const nexthop = stage == 0 ? shortRoutes_->route(route) : hashed_[stage - 1]->route(route);
    if (!nexthop) return std::nullopt;
    return NexthopIndexes(*nexthop);
}

RouteState RouteAgent::routeState(LpmKey const& route) const {
    if (!canBe(route)) return RouteState::absent;
    std::size_t const stage = RouteStages::numberOf(route.prefix().len());
    if (stage != 0) return hashed_[stage - 1]->routeState(route);
    if (!shortRoutes_->route(route)) return RouteState::absent;
    return reconciling_ ? RouteState::waiting : RouteState::placed;
}

std::size_t RouteAgent::routes() const {
    return counts().routes;
}

void RouteAgent::forEachRoute(std::function<void(Route const&, RouteState)> const& visit) const {
    shortRoutes_->forEachRoute([&](LpmKey const& route, U16 nexthop) {
        visit({route, nexthop}, reconciling_ ? RouteState::waiting : RouteState::placed);
    });
    for (auto const& stage : hashed_) {
        stage->forEachRoute([&](LpmKey const& route, U16 nexthop, RouteState state) {
            visit({route, nexthop}, state);
        });
    }
}

std::optional<Route> RouteAgent::match(U8 vrf, IpAddr address, bool placedOnly) const {
    if (vrf >= numVrfs_) return std::nullopt;
    auto found = Lanvo::Prefix::null();
    for (auto stage = hashed_.rbegin(); stage != hashed_.rend() && found.isNull(); ++stage)
        found = (*stage)->match(vrf, address.hostOrder(), placedOnly);
    if (found.isNull() && !(placedOnly && reconciling_))
        found = shortRoutes_->match(vrf, address.hostOrder());
    if (found.isNull()) return std::nullopt;
    LpmKey const key(vrf, found);
    return Route{key, *route(key)};
}

std::optional<Route> RouteAgent::match(U8 vrf, IpAddr address) const {
    return match(vrf, address, false);
}

std::optional<Route> RouteAgent::placedMatch(U8 vrf, IpAddr address) const {
    return match(vrf, address, true);
}

RouteCounts RouteAgent::counts(std::size_t stage) const {
    if (stage != 0) return hashed_.at(stage - 1)->counts();
    std::size_t const routes = shortRoutes_->routes();
    return {.routes = routes, .waitingRoutes = reconciling_ ? routes : 0, .keys = shortRoutes_->keys()};
}

RouteCounts RouteAgent::counts() const {
    RouteCounts all;
    for (std::size_t stage = 0; stage < RouteStages::count; ++stage) {
        auto const counts = this->counts(stage);
        all.routes += counts.routes;
        all.waitingRoutes += counts.waitingRoutes;
        all.keys += counts.keys;
        all.waitingKeys += counts.waitingKeys;
    }
    return all;
}

void RouteAgent::observerIs(Observer observer) {
    observer_ = std::move(observer);
}

void RouteAgent::reconciled() {
    if (!reconciling_) return;
    shortRoutes_->reconciled();
    for (auto const& stage : hashed_)
        stage->reconciled();
    shortRoutes_->reconcilingIs(false);
    for (auto const& stage : hashed_)
        stage->reconcilingIs(false);
    reconciling_ = false;
}

std::size_t RouteAgent::retryWaiting() {
    std::size_t placed = 0;
    for (auto const& stage : hashed_)
        placed += reconciling_ ? 0 : stage->retryWaiting();
    return placed;
}

}  // namespace Agent

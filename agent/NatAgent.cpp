#include "agent/NatAgent.h"

#include <array>
#include <fmt/format.h>
#include <utility>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/Indexes.h"
#include "Sorn/Text.h"

namespace Agent {

using NerioSwitch::NatType;
using NerioSwitchTable::NatMatchKey;
using NerioSwitchTable::NatMatchResult;
using NerioSwitchTable::NatRewriteKey;
using NerioSwitchTable::NatRewriteResult;

namespace {

/** Session 0 is what hardware has for none. */
constexpr U32 firstSession = 2;
constexpr U32 endOfSessions = NerioSwitch::NatSessionId::null;
constexpr U32 lastProfile = 63;

/** The session of the way out of a pair. */
constexpr U32 pairOf(U32 session) {
    return session & ~1u;
}

template <class Table>
std::optional<Refusal> entryIs(Table& table, typename Table::Key const& key,
                               typename Table::Result const& result) {
    table.entryIs(key, result);
    if (isProgrammed(table, key)) return std::nullopt;
    return noPlace(table, key.stringValue());
}

}  // namespace

struct NatAgent::Parts {
    std::array<std::pair<NatMatchKey, NatMatchResult>, 2> matches;
    std::array<std::pair<NatRewriteKey, NatRewriteResult>, 2> rewrites;
};

U16 checksumCorrection(Lanvo::IpAddr const& oldAddress, U16 oldPort, Lanvo::IpAddr const& newAddress,
                       U16 newPort) {
    U32 const removed = ~oldAddress.hostOrder();
    U32 const added = newAddress.hostOrder();
    U32 sum = (removed >> 16) + (removed & 0xFFFF) + (added >> 16) + (added & 0xFFFF);
    sum += (~U32{oldPort} & 0xFFFF) + newPort;
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<U16>(sum);
}

NatTables NatTables::made(NerioSwitch::ProfileInfo const& profile) {
    if (!profile.natProfile || profile.numPipelines == 0)
        throw Belmo::RangeException("translations take a chip that translates; the profile says it does not");
    NatTables tables;
    for (U32 number = 0; number < profile.numPipelines; number += 2) {
        auto const pipeline = NerioSwitch::PipeId(number).value();
        tables.matches.push_back(
            NerioSwitchTable::natMatchTableFactory(fmt::format("natMatch{}", pipeline), pipeline));
    }
    // Packets may leave through any egress processor, and each has rewrites of its own.
    auto const processors = profile.numProcessors(NerioSwitch::TableLayoutEnum::tableLayoutEgress);
    for (U32 number = 0; number < processors; ++number) {
        auto const processor = static_cast<U8>(number);
        tables.rewrites.push_back(
            NerioSwitchTable::natRewriteTableFactory(fmt::format("natRewrite{}", processor), processor));
    }
    return tables;
}

std::vector<Belmo::Ptr<NerioSwitchApi::SwTable>> NatTables::tables() const {
    std::vector<Belmo::Ptr<NerioSwitchApi::SwTable>> all(matches.begin(), matches.end());
    all.insert(all.end(), rewrites.begin(), rewrites.end());
    return all;
}

NatAgent::NatAgent(MatchTables matches, RewriteTables rewrites)
    : matches_(std::move(matches)), rewrites_(std::move(rewrites)), nextSession_(firstSession) {
    for (auto const& table : matches_) {
        for (auto const& [key, result] : table->entries())
            held_.insert(pairOf(result.natSessionId().value()));
    }
    for (auto const& table : rewrites_) {
        for (auto const& [key, result] : table->entries())
            held_.insert(pairOf(key.natSessionId().value()));
    }
}

void NatAgent::check(NatTranslation const& translation) {
    if ((translation.insidePort() == 0) != (translation.outsidePort() == 0)) {
        throw Belmo::RangeException("Agent::NatTranslation::insidePort == 0 != outsidePort == 0 not allowed");
    }
    if (translation.proto() > NerioSwitch::NatL4Proto::tcpAndUdp) {
        throw Belmo::RangeException(
            "Agent::NatTranslation::proto > NerioSwitch::NatL4Proto::tcpAndUdp not allowed");
    }
    if (translation.profile() > lastProfile)
        throw Belmo::RangeException("Agent::NatTranslation::profile > 63 not allowed");
}

NatAgent::Parts NatAgent::partsOf(NatTranslation const& translation, U32 session) {
    auto const& inside = translation.inside();
    auto const& outside = translation.outside();
    U16 const insidePort = translation.insidePort();
    U16 const outsidePort = translation.outsidePort();
    bool const hasPort = insidePort != 0;
    auto const match =
        NatMatchKey().filterPfxIs(translation.filterPfx()).ingressProfileIdIs(translation.profile().value());
    auto const result = NatMatchResult().validIs(true).protoIs(translation.proto());
    auto const rewrite = NatRewriteKey().isUnicastIs(true).natProfileIdIs(translation.profile());
    auto const outbound = NatMatchKey(match)
                              .natTypeIs(hasPort ? NatType::sourcePort : NatType::sourceAddress)
                              .sipIs(inside)
                              .sportIs(insidePort);
    auto const inbound = NatMatchKey(match)
                             .natTypeIs(hasPort ? NatType::destinationPort : NatType::destinationAddress)
                             .dipIs(outside)
                             .dportIs(outsidePort);
    auto const to = [](Lanvo::IpAddr const& address, U16 port, U16 correction) {
        return NatRewriteResult().validIs(true).newIpIs(address).newPortIs(port).checksumCorrectionIs(
            correction);
    };
    return {{{{outbound, NatMatchResult(result).natSessionIdIs(session)},
              {inbound, NatMatchResult(result).natSessionIdIs(session + 1)}}},
            {{{NatRewriteKey(rewrite).natSessionIdIs(session),
               to(outside, outsidePort, checksumCorrection(inside, insidePort, outside, outsidePort))},
              {NatRewriteKey(rewrite).natSessionIdIs(session + 1),
               to(inside, insidePort, checksumCorrection(outside, outsidePort, inside, insidePort))}}}};
}

std::optional<Refusal> NatAgent::taken(Parts const& parts) const {
    for (auto const& [key, result] : parts.matches) {
        if (matchKeys_.contains(key))
            return Refusal{Refusal::Reason::taken,
                           fmt::format("another translation matches {}", key.stringValue())};
    }
    return std::nullopt;
}

/** The session that all tables hold the translation's matches under, from an earlier life. */
std::optional<U32> NatAgent::heldSession(Parts const& parts) const {
    std::optional<U32> session;
    for (auto const& table : matches_) {
        for (U32 way = 0; way < 2; ++way) {
            auto const& key = parts.matches[way].first;
            if (!table->entryHas(key)) return std::nullopt;
            U32 const found = table->entry(key).natSessionId().value() - way;
            if (found < firstSession || found != pairOf(found) || found != session.value_or(found))
                return std::nullopt;
            session = found;
        }
    }
    return session && used_.contains(*session) ? std::nullopt : session;
}

std::optional<U32> NatAgent::freeSession() {
    constexpr U32 pairs = (endOfSessions - firstSession) / 2;
    for (U32 tried = 0; tried < pairs; ++tried) {
        U32 const session = nextSession_;
        nextSession_ = session + 2 < endOfSessions ? session + 2 : firstSession;
        if (!held_.contains(session)) return session;
    }
    return std::nullopt;
}

std::optional<Refusal> NatAgent::place(Parts const& parts) {
    for (auto const& [key, result] : parts.rewrites) {
        for (auto const& table : rewrites_) {
            if (auto refusal = entryIs(*table, key, result)) return refusal;
        }
    }
    for (auto const& [key, result] : parts.matches) {
        for (auto const& table : matches_) {
            if (auto refusal = entryIs(*table, key, result)) return refusal;
        }
    }
    return std::nullopt;
}

void NatAgent::remove(Parts const& parts) {
    for (auto const& [key, result] : parts.matches) {
        for (auto const& table : matches_)
            table->entryDel(key);
    }
    for (auto const& [key, result] : parts.rewrites) {
        for (auto const& table : rewrites_)
            table->entryDel(key);
    }
}

/** Removes what an earlier call could not. */
void NatAgent::settle() {
    while (!leaving_.empty()) {
        auto const [translation, session] = *leaving_.begin();
        remove(partsOf(translation, session));
        held_.erase(session);
        leaving_.erase(translation);
    }
}

void NatAgent::settleIfPossible() {
    try {
        settle();
    } catch (Belmo::Exception const&) {
        // What is left goes before anything else is done.
    }
}

std::optional<Refusal> NatAgent::translationIs(NatTranslation const& translation) {
    check(translation);
    settle();
    if (translationHas(translation)) return std::nullopt;
    auto const keys = partsOf(translation, firstSession);
    if (auto refusal = taken(keys)) return refusal;
    auto session = heldSession(keys);
    if (!session) session = freeSession();
    if (!session) return Refusal{Refusal::Reason::noSession, "all sessions are in use"};

    held_.insert(*session);
    auto const parts = partsOf(translation, *session);
    leaving_.emplace(translation, *session);  // until all of it is in hardware
    std::optional<Refusal> refusal;
    try {
        refusal = place(parts);
    } catch (Belmo::Exception const&) {
        settleIfPossible();
        throw;
    }
    if (refusal) {
        settle();
        return refusal;
    }
    leaving_.clear();
    sessions_.emplace(translation, *session);
    used_.insert(*session);
    for (auto const& [key, result] : parts.matches)
        matchKeys_.insert(key);
    return std::nullopt;
}

bool NatAgent::translationDel(NatTranslation const& translation) {
    settle();
    auto const found = sessions_.find(translation);
    if (found == sessions_.end()) return false;
    for (auto const& [key, result] : partsOf(translation, found->second).matches)
        matchKeys_.erase(key);
    used_.erase(found->second);
    leaving_.insert(*found);
    sessions_.erase(found);
    settle();
    return true;
}

void NatAgent::othersDel() {
    settle();
    for (auto const& table : matches_) {
        std::vector<NatMatchKey> others;
        for (auto const& [key, result] : table->entries()) {
            if (!matchKeys_.contains(key)) others.push_back(key);
        }
        for (auto const& key : others)
            table->entryDel(key);
    }
    for (auto const& table : rewrites_) {
        std::vector<NatRewriteKey> others;
        for (auto const& [key, result] : table->entries()) {
            if (key.isUnicast() && !used_.contains(pairOf(key.natSessionId().value()))) others.push_back(key);
        }
        for (auto const& key : others)
            table->entryDel(key);
    }
    held_ = used_;
}

}  // namespace Agent

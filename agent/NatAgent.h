#pragma once

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "Lanvo/Address.h"
#include "NerioSwitch/Nat.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/NerioTableNatMatch.h"
#include "NerioSwitchTable/NerioTableNatRewrite.h"
#include "agent/Refusal.h"

/* Whole translations of addresses over the tables that hold their parts. */
namespace Agent {

/**
 * A static translation: what `inside` is inside is `outside` outside. With ports, both of them, it is one of
 * a port; without, of the whole address. `filterPfx` are the peers outside that it is for, all without one.
 * `proto` are the transport protocols it is for, all without one. Interfaces of `profile` take part in it.
 */
class NatTranslation {
    SORN_VALUE_TYPE(Agent, NatTranslation, (Lanvo::IpAddr, inside, {}), (U16, insidePort, 0),
                    (Lanvo::IpAddr, outside, {}), (U16, outsidePort, 0), (NerioSwitch::NatL4Proto, proto, {}),
                    (NerioSwitch::NatProfileId, profile, {}),
                    (Lanvo::Prefix, filterPfx, Lanvo::Prefix::null()));
};

/**
 * What to add to a transport checksum's one's complement sum when an address and a port are exchanged for
 * others (A. Rijsinghani, "Computation of the Internet Checksum via Incremental Update", RFC 1624).
 */
U16 checksumCorrection(Lanvo::IpAddr const& oldAddress, U16 oldPort, Lanvo::IpAddr const& newAddress,
                       U16 newPort);

/** The tables that translations live in. */
struct NatTables {
    std::vector<Belmo::Ptr<NerioSwitchTable::NatMatchTable>> matches;
    std::vector<Belmo::Ptr<NerioSwitchTable::NatRewriteTable>> rewrites;

    /**
     * New tables, which are yet to be brought up: "natMatch0", "natMatch2", ... for every two pipelines, and
     * "natRewrite0", "natRewrite1", ... for each egress processor. Throws `Belmo::RangeException` for a chip
     * that does not translate.
     */
    static NatTables made(NerioSwitch::ProfileInfo const& profile);
    /** All of them. */
    std::vector<Belmo::Ptr<NerioSwitchApi::SwTable>> tables() const;
};

/**
 * Programs translations. Each has a session number for its way out, an even one, and the next one for its way
 * in, and takes two entries in every match table and two in every rewrite table. Either all of them are in
 * hardware, or none. The rewrites go in first and out last, so that a packet that is matched is rewritten.
 *
 * Two translations may not match the same packets: neither by their inside nor by their outside, whatever the
 * protocol.
 *
 * What tables came back with after a restart stays until `othersDel`; a translation that is told again takes
 * over its session and entries, and nothing is written for it.
 */
class NatAgent {
public:
    using MatchTables = std::vector<Belmo::Ptr<NerioSwitchTable::NatMatchTable>>;
    using RewriteTables = std::vector<Belmo::Ptr<NerioSwitchTable::NatRewriteTable>>;

    /** The tables of every pipeline that packets come in or leave by; all of them are up. */
    NatAgent(MatchTables matches, RewriteTables rewrites);

    /**
     * Programs a translation; nothing for one that is there. Says why if it cannot be in hardware, and then
     * no part of it is. Throws `Belmo::RangeException` for one of a single port, or of a protocol or a
     * profile that rows cannot carry. When the bus fails, lets the failure through; parts that could not be
     * taken back go before anything else is done.
     */
    std::optional<Refusal> translationIs(NatTranslation const& translation);
    /** Removes all parts of a translation; false if there is none. When the bus fails, lets the failure
     * through: the translation is gone, and its parts go before anything else is done. */
    bool translationDel(NatTranslation const& translation);
    /** Removes what tables hold that is no part of a translation, other than rewrites of multicast packets.
     */
    void othersDel();

    bool translationHas(NatTranslation const& translation) const { return sessions_.contains(translation); }
    /** The session number of the way out, by translation. */
    std::map<NatTranslation, U32> const& sessions() const { return sessions_; }

private:
    /** The entries of a translation. */
    struct Parts;

    static void check(NatTranslation const& translation);
    static Parts partsOf(NatTranslation const& translation, U32 session);
    std::optional<Refusal> taken(Parts const& parts) const;
    std::optional<U32> heldSession(Parts const& parts) const;
    std::optional<U32> freeSession();
    std::optional<Refusal> place(Parts const& parts);
    void remove(Parts const& parts);
    void settle();
    void settleIfPossible();

    MatchTables matches_;
    RewriteTables rewrites_;
    std::map<NatTranslation, U32> sessions_;
    std::set<NerioSwitchTable::NatMatchKey> matchKeys_;
    std::set<U32> used_;
    /** Sessions of translations and of what tables came back with. */
    std::set<U32> held_;
    U32 nextSession_;
    /** Translations, with their sessions, whose parts could not be removed. */
    std::map<NatTranslation, U32> leaving_;
};

}  // namespace Agent

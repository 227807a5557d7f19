#pragma once

#include <array>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "NerioSwitch/AclHash.h"
#include "NerioSwitch/ProfileInfo.h"

#include "NerioSwitchTable/NerioAclRow.h"
#include "agent/FilterSet.h"
#include "agent/ImportReport.h"
#include "agent/StateFile.h"

namespace Agent {

/** A rule of an ACL that is imported. */
struct AclImportRule {
    /** It is for packets that fit any of them. */
    std::vector<FilterRule> matches;
    bool permit = true;
    /** Where it stands in the text that it comes from. */
    Belmo::String place;
};

/** Which rules of an ACL have to stay in order: those that decide differently, or all. */
enum class AclImportOrder : U8 { decisions, all };

/** The eight port ranges of an ACL: half of them are tied to the first or the last port. */
class AclRanges {
public:
    static constexpr U8 places = 8;

    /** The number of a range, which takes a place if it has none; nothing when no place is left. */
    std::optional<U8> numberOf(PortRange const& range);
    std::array<std::optional<PortRange>, places> const& ranges() const { return ranges_; }

private:
    std::array<std::optional<PortRange>, places> ranges_;
};

/**
 * Makes tables of lists of rules of which the first that a packet fits decides. Each list becomes an ACL with
 * a number from 1 to 15, each rule an entry of the ACL processors of every pipeline, in the combination of
 * fields that it looks at, and with a counter of its own as far as these go.
 *
 * Of the rules that a packet hits, the one with the lowest priority number decides. There are 63 numbers, so
 * rules share one unless a packet may fit both of them and their order matters. A rule of a port without a
 * protocol becomes one of TCP and one of UDP. What no entry can say goes to the report, with its place.
 */
class AclImport {
public:
    AclImport(NerioSwitch::ProfileInfo const& profile, ImportReport& report);

    /** Adds an ACL, and returns its number; one without any rule that an entry can say takes none. */
    std::optional<U8> aclIs(Belmo::String const& name, Belmo::String const& place,
                            std::vector<AclImportRule> const& rules,
                            AclImportOrder order = AclImportOrder::decisions);

    /** The tables that hold all of it; none without a rule. */
    std::vector<TableState> tables() const;

private:
    struct Entry {
        NerioSwitch::AclHashKey key;
        NerioSwitch::HwAclRule rule;
        U8 physTableIdx = 0;
    };
    /** A rule that has its entry. */
    struct Taken {
        FilterRule match;
        bool permit;
        U8 priority;
        Belmo::String place;
    };
    struct Acl {
        U8 number;
        AclRanges ranges;
        std::vector<Taken> taken;
    };
    using Reason = std::optional<Belmo::String>;

    Reason add(Acl& acl, FilterRule const& match, AclImportRule const& rule, AclImportOrder order);
    Reason place(Acl& acl, FilterRule const& match, NerioSwitch::HwAclRule rule);
    Reason protocolOf(FilterRule const& match, NerioSwitch::AclHashKey& key);
    Reason rangeOf(Acl& acl, PortRange const& range, NerioSwitch::HwAclRule& rule) const;
    NerioSwitch::HwCounterIndex nextCounter() const;
    Json entriesOf(U8 physTableIdx) const;
    Json protocolEntries() const;
    Json rangeEntries() const;

    NerioSwitch::ProfileInfo const& profile_;
    ImportReport& report_;
    ProtocolNumbers protocols_;
    std::vector<U8> knownProtocols_;
    std::vector<Acl> acls_;
    std::vector<Entry> entries_;
    std::set<std::pair<U8, NerioSwitchTable::AclPackedKey>> packedKeys_;
};

}  // namespace Agent

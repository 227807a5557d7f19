#pragma once

#include <array>
#include <map>

#include "Bridging/VlanId.h"
#include "NerioSwitch/HwAclId.h"
#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/Nat.h"
#include "Sorn/Text.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioPortGeometry.h"
#include "NerioSwitchTable/NerioTablePlainCopies.h"

namespace NerioSwitchTable {
class VlanMembershipResult;
}  // namespace NerioSwitchTable

namespace Sorn {
/** There is no reading of a result from a text: to try it is a programming error. */
template <>
NERIO_SWITCH_TABLE_EXPORT void parseAttributes(CharRange& range,
                                               NerioSwitchTable::VlanMembershipResult& object);
}  // namespace Sorn

namespace NerioSwitchTable {

/** The VLAN. A default key holds VLAN 1. */
class NERIO_SWITCH_TABLE_EXPORT VlanMembershipKey {
    SORN_VALUE_TYPE(NerioSwitchTable, VlanMembershipKey, (Bridging::VlanId, vid, {}));

    explicit VlanMembershipKey(Bridging::VlanId vid) : vid_(vid) {}
};

/** A value for each pipe that has one. */
template <class Value>
using PipeMap = std::map<NerioSwitch::PipeId, Value>;

/** Sets, drops and reads single pipes of the map `name`. A pipe without a value reads as the default one. */
#define NERIO_PIPE_MAP_ACCESS(Value, name)                                  \
    VlanMembershipResult& name##Is(NerioSwitch::PipeId pipe, Value value) { \
        name##_[pipe] = value;                                              \
        return *this;                                                       \
    }                                                                       \
    VlanMembershipResult& name##Del(NerioSwitch::PipeId pipe) {             \
        name##_.erase(pipe);                                                \
        return *this;                                                       \
    }                                                                       \
    VlanMembershipResult& name##DelAll() {                                  \
        name##_.clear();                                                    \
        return *this;                                                       \
    }                                                                       \
    Value name(NerioSwitch::PipeId pipe) const {                            \
        auto const found = name##_.find(pipe);                              \
        return found == name##_.end() ? Value() : found->second;            \
    }                                                                       \
    static_assert(true)

/**
 * The ports of a VLAN, bit `p` of the mask is chip port `p`, and what its packets may do. Chips have a NAT id
 * before version 7 of the VLAN registers, and a NAT profile from there on.
 */
class NERIO_SWITCH_TABLE_EXPORT VlanMembershipResult {
public:
    SORN_VALUE_TYPE(NerioSwitchTable, VlanMembershipResult, (U64, permitMask, 0),
                    (PipeMap<NerioSwitch::HwAclId>, aclId, {}), (PipeMap<U8>, aclEnable, {}),
                    (PipeMap<bool>, aclDefaultPermit, {}), (PipeMap<U8>, natId, {}),
                    (PipeMap<NerioSwitch::NatProfileId>, natIngressProfileId, {}),
                    (PipeMap<U8>, natEnable, {}), (bool, learnToCpu, true),
                    (bool, unknownMulticastToCpu, false), (bool, multicastJoinToCpu, false),
                    (bool, broadcastToCpu, false), (bool, unknownDaToCpu, false),
                    (bool, multicastJoinToEgress, true), (U8, vrfBits, 0), (bool, unicastRoute, false),
                    (bool, multicastRoute, false));

    NERIO_PIPE_MAP_ACCESS(NerioSwitch::HwAclId, aclId);
    NERIO_PIPE_MAP_ACCESS(U8, aclEnable);
    NERIO_PIPE_MAP_ACCESS(bool, aclDefaultPermit);
    NERIO_PIPE_MAP_ACCESS(U8, natId);
    NERIO_PIPE_MAP_ACCESS(NerioSwitch::NatProfileId, natIngressProfileId);
    NERIO_PIPE_MAP_ACCESS(U8, natEnable);

    /** It differs from the default result. */
    explicit operator bool() const { return *this != VlanMembershipResult(); }
    /** "permitMask:0x000000000003 learnToCpu:true ... multicastRoute:false ", and the maps that hold any. */
    Belmo::String resultString() const;
};
#undef NERIO_PIPE_MAP_ACCESS

/**
 * A row of one copy: a bit stream whose positions depend on the version of the VLAN registers, the copy's
 * ports, the VRF count, and whether an ACL processor serves one pipe or two. Fields that the row at hand
 * lacks have no bits.
 */
struct VlanMembershipRow {
    static constexpr std::size_t maxWords = 4;

    /** What the layout depends on. */
    struct Form {
        NerioSwitch::RegisterFormatVersion version = 0;
        U32 copy = 0;
        U32 ports = 0;
        U32 vrfBits = 0;
        bool singleAclPipeMode = false;
        /** Rows of a single port end before the ACL fields. */
        bool hasPipeFields = false;
    };
    /** The ACL of one pipe. */
    struct Acl {
        U32 pipe = 0;
        BitField id;
        BitField enable;
        BitField defaultPermit;
    };

    U8 dataWords;
    BitField valid;
    BitField permitMask;
    BitField learnToCpu;
    BitField unknownMulticastToCpu;
    BitField multicastJoinToCpu;
    BitField broadcastToCpu;
    BitField unknownDaToCpu;
    BitField multicastJoinToEgress;
    BitField parity;
    BitField vrfBits;
    BitField unicastRoute;
    BitField multicastRoute;
    /** Set in every row of version 3, which has constants where later versions have ACL fields. */
    BitField always;
    U8 aclPipes = 0;
    std::array<Acl, 2> acl{};
    /** NAT fields are written from the maps at one pipe, and read back into them at another where an ACL
     * processor serves a single pipe. This stays so. */
    U32 natPipe = 0;
    U32 natReadPipe = 0;
    BitField natId;
    BitField natIngressProfileId;
    BitField natEnable;
    BitField vid;
    BitField strobe;

    static VlanMembershipRow of(Form const& form);

    /** Those that the row has. */
    std::vector<BitField> fields() const;
    /** Data words and control word. */
    U8 words() const { return static_cast<U8>(dataWords + 1); }
};

/** The pipes that the rows of a VLAN tell an ACL for, and the number that has all of its enable bits set. */
struct VlanAclPipes {
    std::vector<NerioSwitch::PipeId> pipes;
    U8 enable = 0;
};
/** Chips before version 4 of the VLAN registers have none. */
NERIO_SWITCH_TABLE_EXPORT VlanAclPipes vlanAclPipes(NerioSwitch::ProfileInfo const& profile);

/** Lays out in zeroed words all of a row but the port mask and the parity. */
NERIO_SWITCH_TABLE_EXPORT void setBaseHwBuffer(U8 pipeNo, U8 ppp, U32 numVrfBits,
                                               VlanMembershipResult const& result,
                                               NerioSwitchApi::HwIndex vid, U32* buffer,
                                               NerioSwitch::RegisterFormatVersion vlanRegVer,
                                               bool singleAclPipeMode);

/** Per VLAN, its ports and what its packets may do, cut to the ports and pipes of each copy. */
class NERIO_SWITCH_TABLE_EXPORT VlanMembershipTable final
    : public PlainTable<VlanMembershipKey, VlanMembershipResult> {
public:
    explicit VlanMembershipTable(Belmo::String const& name)
        : PlainTable<VlanMembershipKey, VlanMembershipResult>(name) {
        hwTablesDuplicateIs(true);
    }
    ~VlanMembershipTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

/** Base of the convertor, for all chips: says which words of a row are control words. */
class NERIO_SWITCH_TABLE_EXPORT VlanMembershipConvertor
    : public ReplicatedConvertor<VlanMembershipKey, VlanMembershipResult, VlanMembershipRow::maxWords> {
public:
    VlanMembershipConvertor();
    ~VlanMembershipConvertor() override;

    using ReplicatedConvertor::sizeWords;
    void handleInitialized() override;
    /** Must not be reached: the derived class writes rows. */
    void hwTableEntryIs(VlanMembershipKey const& key, VlanMembershipResult const& result) override;
};

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<VlanMembershipTable> VlanMembershipTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<VlanMembershipTable> vlanMembershipTableFactory(
    Belmo::String const& name);

}  // namespace NerioSwitchTable

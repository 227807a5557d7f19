#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "Dovra/Cuckoo.h"
#include "NerioSwitch/AclHash.h"
#include "NerioSwitch/ProfileInfo.h"
#include "NerioSwitchApi/RowLayout.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"

/*
 * How ACL keys are packed for hashing, and how rows of the ACL processors are laid out.
 *
 * A row holds the key without its lowest bits, which the chip takes from the row's number, then the rules,
 * then parity. Where these lie depends on the physical table, the hardware API version and whether every
 * pipeline has an ACL processor of its own. All of that is settled once, when a layout is made. A field that
 * a layout lacks has width 0: setting it does nothing.
 */
namespace NerioSwitchTable {

/** What of a profile keys and rows depend on. */
struct AclRowFormat {
    U16 verMajor = 0;
    /** An ACL processor belongs to each pipeline, and its tables have twice as many rows. */
    bool singleAclPipeMode = false;

    /** Keys carry the length of their addresses. */
    constexpr bool hasFilterMask() const { return verMajor > 2; }
    /** Bits of a row's number, which are the lowest bits of a key that a row does not store. */
    constexpr U8 rowBits() const { return singleAclPipeMode ? 12 : 11; }
};

NERIO_SWITCH_TABLE_EXPORT AclRowFormat aclRowFormat(NerioSwitch::ProfileInfo const& profile);

/** A packed key; the bits behind its length are 0. */
using AclPackedKey = std::array<U32, 3>;

/** Where the attributes of a key lie, for the combinations of one physical table. */
struct NERIO_SWITCH_TABLE_EXPORT AclKeyLayout {
    /** What a field holds for an address of zero, and for the port of a key that does not look at it. */
    static constexpr U32 absentAddress = 0xFFFFFFFF;
    static constexpr U16 anyPort = 0xFFFF;
    /** The protocol field of combinations that do not look at it. */
    static constexpr U8 anyProtocol = 15;

    U8 physTableIdx = 0;
    U8 firstCombination = 0;
    /** Bits of the key. */
    U8 length = 0;
    /** The prefix length that an absent address reads back with, where keys carry no lengths. */
    U8 absentLength = 32;
    BitField keyFlag{};
    BitField vrfId{};
    BitField aclId{};
    BitField combination{};
    BitField firstAddress{};
    BitField secondAddress{};
    BitField protocol{};
    BitField port{};
    BitField firstMaskType{};
    BitField secondMaskType{};

    constexpr std::array<BitField, 10> fields() const {
        return {keyFlag,       vrfId,    aclId, combination,   firstAddress,
                secondAddress, protocol, port,  firstMaskType, secondMaskType};
    }

    /** The key has nothing to look up: its row is to be an empty one. */
    bool isEmpty(NerioSwitch::AclHashKey const& key) const;
    AclPackedKey pack(NerioSwitch::AclHashKey const& key) const;

    /** The packed key is that of an empty row. */
    bool isEmpty(AclPackedKey const& packed) const;
    /** Throws `Belmo::RangeException` for what no key can hold. */
    NerioSwitch::AclHashKey unpack(AclPackedKey const& packed) const;
};

/** The layout of the keys of a combination. */
NERIO_SWITCH_TABLE_EXPORT AclKeyLayout const& aclKeyLayout(NerioSwitch::HwAclCombinationId combination,
                                                           bool hasFilterMask);

/** Where one rule lies in a row. */
struct AclRuleFields {
    BitField priority{};
    BitField ruleFlag{};
    BitField counter{};
    /** What is read back as the counter, which in old formats is a bit more than what is written. */
    BitField counterAsRead{};
    BitField rangeId{};
    /** Bits that are cleared. */
    BitField zero{};

    constexpr std::array<BitField, 4> fields() const { return {priority, ruleFlag, counter, rangeId}; }
};

/** What a row holds. */
struct AclRow {
    NerioSwitch::AclHashKey key;
    NerioSwitch::AclHashResult result;
};

/** The layout of the rows of one physical table. */
struct NERIO_SWITCH_TABLE_EXPORT AclRowLayout {
    static constexpr U8 words = 7;
    /** Words that go to data registers; behind them the control word, a word unused, and the implied key. */
    static constexpr U8 dataWords = 4;
    static constexpr U8 controlWord = 4;
    static constexpr U8 unusedWord = 5;
    static constexpr U8 shadowWord = 6;

    /** A part of the key, and where it lies in the row. */
    struct KeyPart {
        BitField key{};
        BitField row{};
    };

    AclKeyLayout key;
    /** The lowest key bits, which stand in the shadow only, and the stored ones in up to two parts. */
    std::array<KeyPart, 3> keyParts{};
    /** The rule of chain 0 without and with a port range. */
    std::array<AclRuleFields, 2> forms{};
    /** The rule of chain 1. */
    AclRuleFields secondChain{};
    BitField parity{};
    U8 parityWords = 3;
    /** Lays this layout's rows out. */
    void (*encode)(AclPackedKey const&, NerioSwitch::AclHashResult const&, U32* row) = nullptr;

    /** Puts key, rules and parity into a row; all other bits of it stay. */
    void set(AclPackedKey const& packed, NerioSwitch::AclHashResult const& result, U32* row) const;

    /** All fields but those of the control word. A field of the key that lies in two parts of the row is told
     * as its low and its high bits. */
    std::vector<NerioSwitchApi::RowField> rowFields() const;

    AclPackedKey packedKey(U32 const* row) const;
    /** What a row holds; nothing if it is empty. Throws `Belmo::RangeException` for what no key can hold. */
    std::optional<AclRow> decode(U32 const* row) const;
};

/** The control word, through which a row is written. */
struct AclControlFields {
    BitField row{};
    BitField table{};
    BitField physTableIdx{};
    BitField pipeline{};
    BitField zero{};
    BitField writeStrobe{};

    constexpr std::array<BitField, 6> fields() const {
        return {row, table, physTableIdx, pipeline, zero, writeStrobe};
    }
};

/** All rows of a chip: one layout for each physical table, and the control word. */
class NERIO_SWITCH_TABLE_EXPORT AclRowLayouts {
public:
    explicit AclRowLayouts(AclRowFormat const& format);

    AclRowFormat const& format() const { return format_; }
    AclRowLayout const& ofCombination(NerioSwitch::HwAclCombinationId combination) const;
    /** Another number than 0, 1, 2 and 5 is a programming error. */
    AclRowLayout const& ofPhysTable(U8 physTableIdx) const;

    /** All fields of the rows of a physical table. */
    std::vector<NerioSwitchApi::RowField> rowFields(U8 physTableIdx) const;

    /** Sets the control word's fields in a row; its other bits stay. */
    void setControl(Dovra::Cuckoo::CuckooLocation const& location, U8 physTableIdx, U8 pipeline,
                    U32* row) const;

private:
    AclRowFormat format_;
    std::array<AclRowLayout, 4> tables_;
};

}  // namespace NerioSwitchTable

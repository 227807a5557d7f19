#pragma once

#include <array>
#include <map>
#include <optional>

#include "NerioSwitch/AclRange.h"
#include "NerioSwitch/HwAclId.h"
#include "Sorn/Text.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlain.h"

namespace NerioSwitchTable {
class AclPortRangeResult;
}  // namespace NerioSwitchTable

namespace Sorn {
/** There is no reading of a result from a text: to try it is a programming error. */
template <>
NERIO_SWITCH_TABLE_EXPORT void parseAttributes(CharRange& range,
                                               NerioSwitchTable::AclPortRangeResult& object);
}  // namespace Sorn

/* The L4 port ranges that rules of the ACL processors have as a condition. */
namespace NerioSwitchTable {

/** Which of a row's two ranges of a kind. */
BELMO_INDEX(NerioSwitchTable, AclPortRangeIndex, U8, min, 0, max, 1, min);

struct AclPortRangeRowTraits {
    using Representation = U8;
    static constexpr Representation first = 0;
    static constexpr Representation last = 1;
    static constexpr Representation initial = 0;
    static constexpr char const* rangeText =
        "NerioSwitchTable::AclPortRangeResult::row < 0 or > 1 not allowed";
};

/** Which of an ACL's two rows. */
using AclPortRangeRow = Belmo::RangedIndex<AclPortRangeRowTraits>;

struct AclPortRangeNumberTraits {
    using Representation = U8;
    static constexpr Representation invalid = 32;
    static constexpr Representation first = 0;
    static constexpr Representation last = invalid;
    static constexpr Representation initial = invalid;
    static constexpr char const* rangeText =
        "NerioSwitchTable::AclPortRangeKey::value < 0 or > NerioSwitchTable::AclPortRangeKey::invalid not "
        "allowed";
};

/** Number of a row, 0 to 31; 32 is none. */
using AclPortRangeNumber = Belmo::RangedIndex<AclPortRangeNumberTraits>;

/** A row of an ACL's ranges: twice the ACL's number, and one more for the second row. */
class NERIO_SWITCH_TABLE_EXPORT AclPortRangeKey {
public:
    static constexpr U8 invalid = AclPortRangeNumber::invalid;

    SORN_VALUE_TYPE(NerioSwitchTable, AclPortRangeKey, (AclPortRangeNumber, value, {}));

    explicit AclPortRangeKey(AclPortRangeNumber value) : value_(value) {}

    /** Throws `Belmo::RangeException` for a row beyond the last ACL's. */
    static AclPortRangeKey fromAclIdAndRow(NerioSwitch::HwAclId aclId, U8 row) {
        return AclPortRangeKey(aclId.value() * 2 + row);
    }

    U8 aclId() const { return value_.value() >> 1 & 0xF; }
    U8 row() const { return value_.value() & 1; }
};

/**
 * The ranges of a row. A window has two ends; an anchor runs from port 0 up, or up to port 65535. Of an
 * anchor that does neither hardware has no lower end: it runs from 0.
 *
 * A range's number is its place: bit 2 the row, bit 1 the kind (1 for an anchor), bit 0 the index.
 */
class NERIO_SWITCH_TABLE_EXPORT AclPortRangeResult {
public:
    using Ranges = std::map<AclPortRangeIndex, NerioSwitch::HwAclRange>;

    SORN_VALUE_TYPE(NerioSwitchTable, AclPortRangeResult, (Ranges, windowRange, {}),
                    (Ranges, anchorRange, {}), (AclPortRangeRow, row, {}));

    explicit AclPortRangeResult(AclPortRangeRow row) : row_(row) {}

    AclPortRangeResult& windowRangeIs(AclPortRangeIndex index, NerioSwitch::HwAclRange const& range);
    AclPortRangeResult& windowRangeDel(AclPortRangeIndex index);
    AclPortRangeResult& windowRangeDelAll();
    std::optional<NerioSwitch::HwAclRange> windowRange(AclPortRangeIndex index) const;

    AclPortRangeResult& anchorRangeIs(AclPortRangeIndex index, NerioSwitch::HwAclRange const& range);
    AclPortRangeResult& anchorRangeDel(AclPortRangeIndex index);
    AclPortRangeResult& anchorRangeDelAll();
    std::optional<NerioSwitch::HwAclRange> anchorRange(AclPortRangeIndex index) const;

    /** Puts a range where its number says. A number that is none, of the other row, or taken already is
     * reported on the trace handle, whatever its level, and the range is put there all the same. */
    AclPortRangeResult& addRange(NerioSwitch::HwAclRange const& range);

    bool isEmpty() const { return windowRange_.empty() && anchorRange_.empty(); }
    /** It differs from a default result. */
    explicit operator bool() const { return *this != AclPortRangeResult(); }

    /** A line for the row, and one for each place. */
    Belmo::String resultString() const;
};

/** A row: four data words, and the control word that stores them. */
struct AclPortRangeHwRow {
    static constexpr U8 words = 5;
    static constexpr U8 controlWord = 4;
    static constexpr U8 rows = 32;
    static constexpr U8 places = 2;
    /** What the control word calls the ranges among the tables of the processor. */
    static constexpr U32 rangeTable = 6;

    static constexpr BitField windowMin(U8 i) { return {"windowMin", window(i, 0), 16}; }
    static constexpr BitField windowMax(U8 i) { return {"windowMax", window(i, 16), 16}; }
    static constexpr BitField windowFlag(U8 i) { return {"windowFlag", window(i, 32), 1}; }
    /** The lower end of a range up to port 65535, or the first port above a range from port 0 up. */
    static constexpr BitField anchorValue(U8 i) { return {"anchorValue", anchor(i, 0), 17}; }
    static constexpr BitField anchorUpward(U8 i) { return {"anchorUpward", anchor(i, 17), 1}; }
    static constexpr BitField anchorFlag(U8 i) { return {"anchorFlag", anchor(i, 18), 1}; }
    static constexpr BitField parity{"parity", 104, 1};

    static constexpr U16 control = 32 * controlWord;
    static constexpr BitField row{"row", control, 5};
    static constexpr BitField physTable{"physTable", control + 13, 3};
    static constexpr BitField pipeline{"pipeline", control + 16, 1};
    static constexpr BitField writeStrobe{"writeStrobe", control + 18, 1};

    static constexpr auto fields() {
        return std::array{windowMin(0),    windowMax(0),   windowFlag(0),   windowMin(1),  windowMax(1),
                          windowFlag(1),   anchorValue(0), anchorUpward(0), anchorFlag(0), anchorValue(1),
                          anchorUpward(1), anchorFlag(1),  parity,          row,           physTable,
                          pipeline,        writeStrobe};
    }

private:
    static constexpr U16 window(U8 index, U32 bit) { return static_cast<U16>(33u * index + bit); }
    static constexpr U16 anchor(U8 index, U32 bit) { return static_cast<U16>(66u + 19u * index + bit); }
};
static_assert(fieldsFit(AclPortRangeHwRow::fields(), AclPortRangeHwRow::words) &&
              fieldsDisjoint(AclPortRangeHwRow::fields()));

/**
 * Per ACL and row, the port ranges of a pipeline's ACL rules. A chip below hardware API version 4 has none:
 * the start reports so, and nothing reaches hardware.
 */
class NERIO_SWITCH_TABLE_EXPORT AclPortRangeTable final
    : public PlainTable<AclPortRangeKey, AclPortRangeResult> {
public:
    AclPortRangeTable(Belmo::String const& name, U8 pipeline)
        : PlainTable<AclPortRangeKey, AclPortRangeResult>(name), pipeline_(pipeline) {}
    ~AclPortRangeTable() override;

    U8 pipeline() const { return pipeline_; }

    void handleEntry(AclPortRangeKey const& key) override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;

private:
    U8 pipeline_;
};

using AclPortRangeConvertor = AclPortRangeTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclPortRangeTable> AclPortRangeTableIs(Belmo::String const& name,
                                                                            U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<AclPortRangeTable> aclPortRangeTableFactory(Belmo::String const& name,
                                                                                 U8 pipeline);

}  // namespace NerioSwitchTable

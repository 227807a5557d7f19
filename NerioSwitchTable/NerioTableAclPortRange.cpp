#include "NerioSwitchTable/NerioTableAclPortRange.h"

#include <fmt/format.h>

#include "Belmo/Assert.h"
#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"
#include "Sorn/Trace.h"

#include "NerioSwitchTable/NerioTableAclPipeline.h"

namespace Sorn {

template <>
void parseAttributes(CharRange& /*range*/, NerioSwitchTable::AclPortRangeResult& /*object*/) {
    BELMO_ASSERT_TEXT(false, "\"No String constructor for AclPortRangeResult - has collection\" == nullptr");
}

}  // namespace Sorn

namespace NerioSwitchTable {

using NerioSwitch::HwAclRange;
using NerioSwitch::HwAclRangeId;
using Row = AclPortRangeHwRow;

namespace {

Sorn::TraceHandle handle("NerioTableAclPortRange");

constexpr TableIndex tableIndex = 75;
constexpr U32 allBits = 0xFFFFFFFF;
constexpr U16 topPort = 0xFFFF;
constexpr U8 rowBit = 4;
constexpr U8 anchorBit = 2;
constexpr U8 indexBit = 1;

/** A caller's mistake, which is told at any trace level and ends nothing. */
void report(Belmo::String const& text) {
    handle.emit(0, text);
}

void setWindow(U32* words, U8 index, HwAclRange const& range) {
    Row::windowMin(index).set(words, range.min());
    Row::windowMax(index).set(words, range.max());
    Row::windowFlag(index).set(words, range.flag());
}

void setAnchor(U32* words, U8 index, HwAclRange const& range) {
    bool const upward = range.max() == topPort;
    Row::anchorValue(index).set(words, upward ? range.min() : range.max() + 1u);
    Row::anchorUpward(index).set(words, upward);
    Row::anchorFlag(index).set(words, range.flag());
}

/** A window without a port above 0 is none. */
std::optional<HwAclRange> windowOf(U32 const* words, U8 index, HwAclRangeId id) {
    HwAclRange const range(id, static_cast<U16>(Row::windowMin(index).get(words)),
                           static_cast<U16>(Row::windowMax(index).get(words)),
                           Row::windowFlag(index).get(words) != 0);
    if (!range.isSet()) return std::nullopt;
    return range;
}

std::optional<HwAclRange> anchorOf(U32 const* words, U8 index, HwAclRangeId id) {
    U64 const value = Row::anchorValue(index).get(words);
    bool const upward = Row::anchorUpward(index).get(words) != 0;
    if (value == 0 && !upward) return std::nullopt;
    bool const flag = Row::anchorFlag(index).get(words) != 0;
    if (upward) return HwAclRange(id, static_cast<U16>(value), topPort, flag);
    return HwAclRange(id, 0, static_cast<U16>(value - 1), flag);
}

/** The one convertor of this table, for every profile. */
class AclPortRangeConvertorAll final : public AclPipelineConvertor<AclPortRangeTable, Row::words> {
public:
    AclPortRangeConvertorAll() : AclPipelineConvertor(Row::words) {
        strobeBitsAre(17, 18);
        hwStaticWordIs(Row::controlWord, allBits);
    }

    void handleInitialized() override { hwStaticWordIs(Row::controlWord, allBits); }

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        if (profile()->hwApi.majorVersion() < 4) {
            report("No ACL range support in hwApi " + profile()->hwApi.text());
            return;
        }
        hwStaticWordIs(Row::controlWord, allBits);
        createRows(state, tableIndex, Row::rows,
                   {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"});
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy /*copy*/) const override {
        return {NerioSwitchApi::rowLayout(Row::words, NerioSwitchApi::rowFields(Row::fields()))};
    }

protected:
    HwIndex rowOf(AclPortRangeKey const& key) const override { return key.value().value(); }
    AclPortRangeKey keyOf(HwIndex row) const override { return AclPortRangeKey(row); }
    Sorn::TraceHandle const& trace() const override { return handle; }

    RowWords encode(Copy /*copy*/, AclPortRangeKey const& key,
                    AclPortRangeResult const& result) const override {
        RowWords row{};
        auto* const words = row.data();
        for (auto const& [index, range] : result.windowRange())
            setWindow(words, index.value(), range);
        for (auto const& [index, range] : result.anchorRange())
            setAnchor(words, index.value(), range);
        Row::parity.set(words, NerioSwitch::parityU32Array(words, Row::controlWord));
        Row::row.set(words, rowOf(key));
        Row::physTable.set(words, Row::rangeTable);
        Row::pipeline.set(words, pipelineBit());
        Row::writeStrobe.set(words, 1);
        return row;
    }

    AclPortRangeResult decode(Copy /*copy*/, AclPortRangeKey const& key, U32 const* words) const override {
        AclPortRangeResult result(key.row());
        auto const idOf = [&](U8 index, U8 kind) {
            return HwAclRangeId((key.row() != 0 ? rowBit : 0) | kind | index);
        };
        for (U8 index = 0; index < Row::places; ++index) {
            if (auto const range = anchorOf(words, index, idOf(index, anchorBit))) result.addRange(*range);
            if (auto const range = windowOf(words, index, idOf(index, 0))) result.addRange(*range);
        }
        return result;
    }

    /** A window of which one end is 0 comes back as it is, and marks its row. */
    void readBack(Copy copy, AclPortRangeKey const& key, U32 const* words) override {
        auto const result = decode(copy, key, words);
        for (auto const& [index, range] : result.windowRange()) {
            if (range.min() == 0 || range.max() == 0) swTable().hwInconsistentEntryIs(key, true);
        }
        if (!result.isEmpty()) swTable().entryIs(key, result);
    }
};

std::optional<HwAclRange> rangeAt(AclPortRangeResult::Ranges const& ranges, AclPortRangeIndex index) {
    auto const found = ranges.find(index);
    if (found == ranges.end()) return std::nullopt;
    return found->second;
}

Belmo::String pairText(HwAclRange const& range, bool isAnchor) {
    if (isAnchor && range.max() == topPort) return Sorn::_fmt(" (%2d, %s)", range.min(), "max");
    return Sorn::_fmt(" (%2d, %2d)", range.min(), range.max());
}

/** A line for each place of a kind. */
Belmo::String linesOf(AclPortRangeResult::Ranges const& ranges, bool isAnchor) {
    Belmo::String text;
    for (U8 index = 0; index < Row::places; ++index) {
        auto const range = rangeAt(ranges, index);
        text += Sorn::_fmt(isAnchor ? "   anchor%d: " : "   window%d: ", index);
        text += range ? pairText(*range, isAnchor) : "empty";
        text += ",\n";
    }
    return text;
}

}  // namespace

AclPortRangeResult& AclPortRangeResult::windowRangeIs(AclPortRangeIndex index, HwAclRange const& range) {
    windowRange_[index] = range;
    return *this;
}

AclPortRangeResult& AclPortRangeResult::windowRangeDel(AclPortRangeIndex index) {
    windowRange_.erase(index);
    return *this;
}

AclPortRangeResult& AclPortRangeResult::windowRangeDelAll() {
    windowRange_.clear();
    return *this;
}

std::optional<HwAclRange> AclPortRangeResult::windowRange(AclPortRangeIndex index) const {
    return rangeAt(windowRange_, index);
}

AclPortRangeResult& AclPortRangeResult::anchorRangeIs(AclPortRangeIndex index, HwAclRange const& range) {
    anchorRange_[index] = range;
    return *this;
}

AclPortRangeResult& AclPortRangeResult::anchorRangeDel(AclPortRangeIndex index) {
    anchorRange_.erase(index);
    return *this;
}

AclPortRangeResult& AclPortRangeResult::anchorRangeDelAll() {
    anchorRange_.clear();
    return *this;
}

std::optional<HwAclRange> AclPortRangeResult::anchorRange(AclPortRangeIndex index) const {
    return rangeAt(anchorRange_, index);
}

AclPortRangeResult& AclPortRangeResult::addRange(HwAclRange const& range) {
    U8 const id = range.id().value();
    U8 const rowOfRange = (id & rowBit) != 0 ? 1 : 0;
    bool const isAnchor = (id & anchorBit) != 0;
    AclPortRangeIndex const index(id & indexBit);
    auto& ranges = isAnchor ? anchorRange_ : windowRange_;
    auto const stored = rangeAt(ranges, index);
    if (id == HwAclRangeId::invalid) report("Invalid aclRangeId");
    if (rowOfRange != row_.value())
        report(fmt::format("aclRange row does not match: {} != {}", rowOfRange, row_.value()));
    if (stored && stored->isSet()) {
        report(fmt::format("{} with id {} already allocated", isAnchor ? "anchorRange" : "windowRange", id));
    }
    ranges[index] = range;
    return *this;
}

Belmo::String AclPortRangeResult::resultString() const {
    return Sorn::_fmt("AclPortRangeResult( row%d\n", row_.value()) + linesOf(windowRange_, false) +
           linesOf(anchorRange_, true) + " )";
}

AclPortRangeTable::~AclPortRangeTable() = default;

void AclPortRangeTable::handleEntry(AclPortRangeKey const& key) {
    if (initialized()) SORN_TRACE(handle, 9, "Set hwTableEntry key: ({}, {})", key.aclId(), key.row());
    PlainTable::handleEntry(key);
}

Belmo::Ptr<AclPortRangeConvertor> AclPortRangeTable::profileConvertorFactory() const {
    return Belmo::make<AclPortRangeConvertorAll>();
}

Belmo::Ptr<AclPortRangeTable> AclPortRangeTableIs(Belmo::String const& name, U8 pipeline) {
    return Belmo::make<AclPortRangeTable>(name, pipeline);
}

Belmo::Ptr<AclPortRangeTable> aclPortRangeTableFactory(Belmo::String const& name, U8 pipeline) {
    return AclPortRangeTableIs(name, pipeline);
}

}  // namespace NerioSwitchTable

#include "NerioSwitchTable/NerioLpmRow.h"

#include <cstddef>
#include <utility>

#include "NerioSwitch/Parity.h"

#include "NerioSwitchTable/BitImage.h"

namespace NerioSwitchTable {

namespace {

using RowImage = BitImage<LpmRowLayout::words>;

constexpr BitField wholeAddress{"address", 32 * LpmRowLayout::addressWord, 32};

constexpr BitField realPrefixLen(U8 cell) {
    return {"realPrefixLen", static_cast<U16>(32 * LpmRowLayout::lengthsWord + 6 * cell), 6};
}

struct LpmControl {
    static constexpr U16 control = 32 * LpmRowLayout::controlWord;
    static constexpr BitField row{"row", control, 12};
    static constexpr BitField way{"way", control + 14, 2};
    static constexpr BitField writeStrobe{"writeStrobe", control + 17, 1};
    static constexpr BitField hashTableId{"hashTableId", control + 18, 4};
    static constexpr std::array fields{row, way, writeStrobe, hashTableId};
};
static_assert(fieldsFit(LpmControl::fields, LpmRowLayout::words) && fieldsDisjoint(LpmControl::fields));

constexpr LpmRowLayout layoutOf(LpmStage const& stage, U8 numVrfBits) {
    U32 const compareWidth = stage.compareWidth(numVrfBits);
    U32 const shift = stage.resultShift(numVrfBits);
    U32 const base = compareWidth + shift;
    auto const at = [&](char const* name, U32 first, U32 width) {
        return BitField{name, static_cast<U16>(first), static_cast<U8>(width)};
    };
    LpmRowLayout layout;
    layout.storedAddress = at("storedAddress", 0, stage.storedBits());
    layout.vrf = at("vrf", stage.storedBits(), numVrfBits);
    layout.zero = at("zero", base - shift, shift);
    layout.valid = at("valid", base, 1);
    for (U8 i = 0; i < LpmRowLayout::cells; ++i) {
        layout.cellResults[i] = at("cellResult", base + 1 + 14 * i, LpmRowLayout::cellResultWidth);
        layout.cellNatResults[i] = at("cellNatResult", base + 59 + 2 * i, LpmRowLayout::cellNatResultWidth);
    }
    layout.cpuTrap = at("cpuTrap", base + 57, 1);
    layout.parity = at("parity", base + 58, 1);
    layout.multicast = at("multicast", base - 1, 1);
    return layout;
}

constexpr bool rowFits(LpmRowLayout const& layout) {
    std::array const fields{layout.storedAddress,
                            layout.vrf,
                            layout.zero,
                            layout.valid,
                            layout.cellResults[0],
                            layout.cellResults[1],
                            layout.cellResults[2],
                            layout.cellResults[3],
                            layout.cellNatResults[0],
                            layout.cellNatResults[1],
                            layout.cellNatResults[2],
                            layout.cellNatResults[3],
                            layout.cpuTrap,
                            layout.parity};
    return fieldsFit(fields, LpmRowLayout::parityWords) && fieldsDisjoint(fields);
}

/** Lays a row out, with every position known to the compiler. */
template <std::size_t stageNumber, U8 numVrfBits>
void encodeRow(NerioSwitch::LpmKey const& wanted, LpmResult const& result, bool valid,
               NerioSwitch::ProfileHwApi const& hwApi, U32* row) {
    static constexpr LpmStage stage = lpmStages[stageNumber];
    static constexpr LpmRowLayout layout = layoutOf(stage, numVrfBits);
    static_assert(rowFits(layout));
    constexpr U32 prefixLen = stage.prefixBaseLen;
    constexpr U32 prefixRange = LpmStage::prefixRange;
    U32 const address = wanted.prefix().address().hostOrder();
    RowImage image;
    image.put(layout.storedAddress, address >> (32 - stage.storedBits()));
    image.put(layout.vrf, wanted.vrf());
    image.put(layout.zero, 0);
    image.put(layout.valid, valid ? 1 : 0);
    for (U8 i = 0; i < LpmRowLayout::cells; ++i) {
        auto const& cell = result.cells()[i];
        U32 const encoding = cell.hwEncoding(false, prefixLen + prefixRange, hwApi);
        image.put(layout.cellResults[i], encoding);
        image.put(layout.cellNatResults[i], encoding >> LpmRowLayout::cellResultWidth);
        U32 const realPrefixLen = cell.realPrefixLen();
        image.put(NerioSwitchTable::realPrefixLen(i), realPrefixLen);
        if (!cell.nexthopIndexes().valid()) continue;
        BELMO_ASSERT(realPrefixLen >= prefixLen);
        BELMO_ASSERT(realPrefixLen <= prefixLen + prefixRange);
    }
    image.put(layout.cpuTrap, result.cpuTrap() ? 1 : 0);
    image.put(layout.parity, 0);
    image.put(wholeAddress, address);
    image.layOver(row);
    layout.parity.set(row, NerioSwitch::parityU32Array(row, LpmRowLayout::parityWords));
}

template <std::size_t... stageNumber>
constexpr auto encodersOf(std::index_sequence<stageNumber...> /*stages*/) {
    return std::array{
        std::array{&encodeRow<stageNumber, 2>, &encodeRow<stageNumber, 3>, &encodeRow<stageNumber, 5>}...};
}
/** For each stage and each width of a VRF's number. */
constexpr auto rowEncoders = encodersOf(std::make_index_sequence<lpmStages.size()>());

}  // namespace

LpmRowLayout lpmRowLayout(LpmStage const& stage, U8 numVrfBits) {
    BELMO_ASSERT(numVrfBits == 2 || numVrfBits == 3 || numVrfBits == 5);
    auto layout = layoutOf(stage, numVrfBits);
    auto const position = static_cast<std::size_t>(&lpmStage(stage.number) - lpmStages.data());
    layout.encode = rowEncoders[position][numVrfBits == 5 ? 2 : numVrfBits - 2u];
    return layout;
}

std::vector<NerioSwitchApi::RowField> lpmRowFields(LpmRowLayout const& layout, bool sharesRows) {
    auto zero = layout.zero;
    auto multicast = layout.multicast;
    if (sharesRows) {
        --zero.width;
    } else {
        multicast.width = 0;
    }
    auto fields = NerioSwitchApi::rowFields(layout.storedAddress, layout.vrf, zero, multicast, layout.valid,
                                            layout.cellResults, layout.cellNatResults, layout.cpuTrap,
                                            layout.parity, LpmControl::fields, wholeAddress);
    for (U8 cell = 0; cell < LpmRowLayout::cells; ++cell)
        fields.emplace_back(realPrefixLen(cell));
    return fields;
}

std::vector<NerioSwitchApi::RowField> lpmControlFields() {
    return NerioSwitchApi::rowFields(LpmControl::fields);
}

void setLpmControl(Dovra::Cuckoo::CuckooLocation const& location, U8 hashTableId, U32* row) {
    RowImage image;
    image.put(LpmControl::row, location.row);
    image.put(LpmControl::way, location.table);
    image.put(LpmControl::writeStrobe, 1);
    image.put(LpmControl::hashTableId, hashTableId);
    image.layOver(row);
}

}  // namespace NerioSwitchTable

#include "NerioSwitchTable/NerioTableLpmBase.h"

#include <cstring>
#include <fmt/format.h>

#include "Belmo/Assert.h"
#include "NerioSwitch/CrcHash.h"
#include "Sorn/Format.h"

namespace NerioSwitchTable {

using NerioSwitch::LpmKey;
using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableLpmBase");

constexpr U32 allBits = 0xFFFFFFFF;
/** The lengths of four cells are 24 bits; a bit more is read, and counts for none of them. */
constexpr U32 lengthBits = 0x1FFFFFF;
constexpr U32 bitsPerLength = 6;
constexpr U32 lengthMask = 0x3F;

/** What is hashed: the key's address bits, and all of the VRF above them. */
U64 hashNumber(LpmStage const& stage, LpmKey const& key) {
    U32 const shift = stage.ipv4DipShift();
    return U64{key.vrf()} << (32 - shift) | key.prefix().address().hostOrder() >> shift;
}

}  // namespace

LpmBaseTableCuckooEntry::~LpmBaseTableCuckooEntry() = default;

U32 LpmBaseTableCuckooEntry::getHash(U8 way) const {
    U64 const number = hashNumber(stage_, key());
    auto const* const bytes = reinterpret_cast<U8 const*>(&number);
    if (stage_.crcLength == 12) return NerioSwitch::crc12Hash(bytes, way, stage_.keyWidth);
    if (stage_.crcLength == 10) return NerioSwitch::crc10Hash(bytes, way, stage_.keyWidth);
    SORN_TRACE(handle, 0, "Unsupported crc length {}", crcLength());
    BELMO_ASSERT(false);
    return 0;
}

HashInput LpmBaseTableCuckooEntry::hashInput() const {
    U64 const number = hashNumber(stage_, key());
    HashInput input;
    input.bits = stage_.keyWidth;
    std::memcpy(input.bytes.data(), &number, sizeof number);
    return input;
}

Belmo::String LpmBaseTableCuckooEntry::toStrep() const {
    return fmt::format("LpmBaseTableCuckooEntry( {}, {} )", Sorn::text(key()), Sorn::text(result()));
}

Belmo::String toStrep(Belmo::Ptr<LpmBaseTableCuckooEntry const> const& item) {
    return item ? item->toStrep() : "NULL";
}

LpmBaseTable::LpmBaseTable(Belmo::String const& name) : HashTable(name) {
    statusSupportedIs(true);
    hitBitsSupportedIs(true);
    hwTablesDuplicateIs(true);
}

LpmBaseTable::~LpmBaseTable() = default;

Belmo::Ptr<LpmBaseTableCuckooEntry> LpmBaseTable::cachedItemMade(LpmKey const& key) {
    auto const itemsBefore = cachedItems();
    auto item = HashTable::createHashEntry(key, true);
    if (cachedItems() != itemsBefore) publisher().publishChangeRecursive("hashItem", key);
    return item;
}

void LpmBaseTable::checkEntry(LpmKey const& key, LpmResult const& result) const {
    if (key.prefix().len() != prefixBaseLen_) {
        throw Belmo::RangeException(
            "NerioSwitchTable::LpmBaseTable::prefixBaseLen != key.prefix().len() not allowed");
    }
    for (auto const& cell : result.cells())
        static_cast<void>(cell.hwEncoding(false, prefixBaseLen_ + prefixRange, {}));
}

Sorn::TraceHandle const& LpmBaseTable::trace() const {
    return handle;
}

LpmBaseHelper::LpmBaseHelper(LpmStage const& stage, U8 numVrfBits)
    : NerioTableHashHelper(stage.tableIndex),
      stage_(stage),
      numVrfBits_(numVrfBits),
      layout_(lpmRowLayout(stage, numVrfBits)) {}

LpmBaseHelper::~LpmBaseHelper() = default;

Dovra::Cuckoo::Rows LpmBaseHelper::rowsOf(LpmKey const& key) const {
    U64 const number = hashNumber(stage_, key);
    auto const* const bytes = reinterpret_cast<U8 const*>(&number);
    auto const hashes = stage_.crcLength == 12 ? NerioSwitch::crc12Hashes(bytes, stage_.keyWidth)
                                               : NerioSwitch::crc10Hashes(bytes, stage_.keyWidth);
    Dovra::Cuckoo::Rows rows{};
    for (U8 way = 0; way < LpmStage::ways; ++way)
        rows[way] = static_cast<U16>(hashes.way(way));
    return rows;
}

bool LpmBaseHelper::entryOwned(HwIndex index) const {
    if (!stage_.sharesRows) return NerioTableHashHelper::entryOwned(index);
    auto const words = storedWords(index);
    return layout_.valid.get(words.data()) != 0 && layout_.multicast.get(words.data()) == 0;
}

void LpmBaseHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) {
    setLpmControl(location, hashTableId(), reinterpret_cast<U32*>(buffer));
}

void LpmBaseHelper::setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                                Sorn::BytePtr buffer) {
    auto const& item = static_cast<LpmBaseTableCuckooEntry const&>(*entry);
    layout_.encode(item.key(), item.result(), item.valid(), profile()->hwApi, reinterpret_cast<U32*>(buffer));
    setStaticBuffer(location, buffer);
}

LpmBaseHelper::Ptr LpmBaseHelper::nullHashEntry() {
    auto* const swTableCasted = dynamic_cast<LpmBaseTable*>(swTable());
    BELMO_ASSERT(swTableCasted);
    auto const item = swTableCasted->createHashItem(LpmKey(), false);
    LpmResult result;
    for (U8 cell = 0; cell < LpmRowLayout::cells; ++cell)
        result.cellResultIs(cell, EntryCellResult().realPrefixLenIs(stage_.prefixBaseLen));
    item->resultIs(result);
    return item;
}

LpmResult LpmBaseHelper::resultIn(U32 const* row, bool valid) const {
    U32 const prefixLen = stage_.prefixBaseLen;
    U32 const prefixRange = LpmStage::prefixRange;
    U32 const lengths = row[LpmRowLayout::lengthsWord] & lengthBits;
    LpmResult result;
    for (U8 i = 0; i < LpmRowLayout::cells; ++i) {
        U32 const realPrefixLen = lengths >> bitsPerLength * i & lengthMask;
        auto const cell = EntryCellResult::fromHwEncoding(layout_.cellIn(row, i), prefixLen + prefixRange,
                                                          false, realPrefixLen, profile()->hwApi);
        if (valid && cell.nexthopIndexes().valid()) {
            BELMO_ASSERT(realPrefixLen >= prefixLen);
            BELMO_ASSERT(realPrefixLen <= prefixLen + prefixRange);
        }
        result.cellResultIs(i, cell);
    }
    return result.cpuTrapIs(layout_.cpuTrap.get(row) != 0);
}

std::vector<NerioSwitchApi::RowLayout> LpmBaseHelper::rowLayouts() const {
    auto fields = lpmRowFields(layout_, stage_.sharesRows);
    if (!stage_.sharesRows) return {NerioSwitchApi::rowLayout(LpmRowLayout::words, std::move(fields))};
    auto const isRoute = [multicast = layout_.multicast](std::span<U32 const> row) {
        return multicast.get(row.data()) == 0;
    };
    return {NerioSwitchApi::rowLayout(LpmRowLayout::words, std::move(fields), "route", isRoute)};
}

LpmBaseHelper::Ptr LpmBaseHelper::decodeHwEntry(HwIndex index) {
    auto const words = storedWords(index);
    U32 const* const row = words.data();
    bool const valid = layout_.valid.get(row) != 0;
    bool const multicast = layout_.multicast.get(row) != 0;
    U32 const address = row[LpmRowLayout::addressWord];
    LpmKey const key(static_cast<U8>(layout_.vrf.get(row)),
                     {Lanvo::IpAddr::fromHostOrder(address), stage_.prefixBaseLen});
    auto const result = resultIn(row, valid);
    // An empty row says the key of a route that may well stand in another row: its item is no concern of
    // this.
    auto const item = lpmTable().createHashItem(key, valid);
    item->resultIs(result);
    item->validIs(valid);
    if (stage_.sharesRows) BELMO_ASSERT(!valid || !multicast);
    if (address >> (32 - stage_.storedBits()) != layout_.storedAddress.get(row)) {
        lpmTable().hwInconsistentEntryIs(key, true);
        return item;
    }
    if (valid) SORN_TRACE(handle, 7, "Decoded valid entry is {}", toStrep(item));
    if (copiesDiffer(index, words)) lpmTable().hwInconsistentEntryIs(key, true);
    return item;
}

LpmBaseConvertor::LpmBaseConvertor() {
    strobeBitsAre(16, 17);
    hwStaticWordIs(LpmRowLayout::controlWord, allBits);
}

LpmBaseConvertor::~LpmBaseConvertor() = default;

void LpmBaseConvertor::handleInitialized() {
    hwStaticWordIs(LpmRowLayout::controlWord, allBits);
}

/** All L3 processors have the same rows, which count once, as those of the first pipe. */
void LpmBaseConvertor::doInitTableStats() {
    BELMO_ASSERT(capacitySupported());
    TableGauge::TableKey const key(helper(0)->name(), "Pipe0", swTable(0)->name());
    BELMO_ASSERT(key.verifyTableKey());
    initEntryCounter(key, tableSize() * numHashTables(), 0);
}

void LpmBaseConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    U32 const tableHitBitOffset = hitBitOffset();
    BELMO_ASSERT(tableHitBitOffset != 0xffffffff);
    auto const processors = profile()->numProcessors(NerioSwitch::TableLayoutEnum::tableLayoutL3);
    for (U32 processor = 0; processor < processors; ++processor) {
        createHashCopy(processor, state, TableIndexInstance(properties().tableId()),
                       Sorn::_fmt("ingress/processor_l3[%u]/", processor),
                       {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"},
                       tableHitBitOffset);
    }
}

}  // namespace NerioSwitchTable

#include "NerioSwitchTable/NerioTableLpm11.h"

#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioHitBitUtil.h"
#include "NerioSwitchTable/TableConstants.h"

namespace NerioSwitchTable {

using Lanvo::IpAddr;
using NerioSwitch::LpmKey;

namespace {

Sorn::TraceHandle handle("NerioTableLpm11");

constexpr TableIndex tableIndex = 42;
constexpr auto l3 = NerioSwitch::TableLayoutEnum::tableLayoutL3;

constexpr U8 keyBits = 11;
constexpr U32 addressShift = 32 - keyBits;
/** The control word has 16 bits for the row. */
constexpr U32 maxVrfs = 1u << (Lpm11Row::row.width - keyBits);

/** Bits of even rows in the processor's hit memory, each for the next `rowsPerHitBit` rows. */
constexpr U8 hitBits[] = {7, 16, 20, 21, 22, 23, 24, 25};
constexpr U32 rowsPerHitBit = 0x2000;

/** A mask length as a row holds it: bits above the field do not count. */
U64 maskCode(MaskLength length) {
    return length == MaskLength::null ? 0 : U64{Lpm11Row::maskLengthBase} - length.value();
}

/** The mask length of a code; codes of 13 and more wrap around to what no mask length can be. */
MaskLength maskOf(U64 code) {
    return code == 0 ? MaskLength() : MaskLength(static_cast<U8>(Lpm11Row::maskLengthBase - code));
}

/** Throws `Belmo::RangeException` for a mask length whose code in that field stands for none. */
void checkMask(BitField const& field, MaskLength length) {
    U64 const code = maskCode(length) & ((U64{1} << field.width) - 1);
    if (code > Lpm11Row::maskLengthBase) throw Belmo::RangeException(Lpm11Row::maskRangeText);
}

Belmo::Ptr<NerioSwitchApi::HitBitReadInfoWrapper> hitBitMapping(Belmo::String const& prefix) {
    auto wrapper = Belmo::make<NerioSwitchApi::HitBitReadInfoWrapper>();
    auto const info = hitBitReadInfoIs(*wrapper, prefix);
    NerioSwitchApi::HwIndex firstIndex = 0;
    for (U8 const bit : hitBits) {
        hitBitRowsAre(*info, bit, firstIndex, rowsPerHitBit);
        firstIndex += rowsPerHitBit;
    }
    return wrapper;
}

}  // namespace

Belmo::String Lpm11Result::resultString() const {
    return (cpuTrap() ? "CpuTrap " : "") + cellResult().resultString();
}

Lpm11Entry::~Lpm11Entry() = default;

Belmo::String Lpm11Entry::toStrep() const {
    return namedText("Lpm11Entry");
}

Lpm11Table::Lpm11Table(Belmo::String const& name) : DirectStatusTable<Lpm11Entry, Lpm11EntryStatus>(name) {
    statusSupportedIs(true);
    hitBitsSupportedIs(true);
    hwTablesDuplicateIs(true);
}

Lpm11Table::~Lpm11Table() = default;

U32 Lpm11Table::swTableId() const {
    return tableIndex;
}

void Lpm11Table::handleEntry(LpmKey const& key) {
    BELMO_ASSERT(key.prefix().len() == 11);
    DirectTable::handleEntry(key);
}

Belmo::Ptr<DirectBaseConvertor> Lpm11Table::profileConvertorFactory() const {
    return lpm11ConvertorFactory();
}

Sorn::TraceHandle const& Lpm11Table::trace() const {
    return handle;
}

void Lpm11Table::checkEntry(LpmKey const& /*key*/, Lpm11Result const& result) const {
    auto const& cell = result.cellResult();
    cell.hwEncoding(true, keyBits, {});
    if (!profile()) return;
    Lpm11Row const row(profile()->hwApi);
    checkMask(row.maskLength0, cell.maskLength0());
    checkMask(row.maskLength1, cell.maskLength1());
}

void Lpm11Table::doInitDirectTable() {
    for (auto const& [key, result] : entries())
        checkEntry(key, result);
    DirectStatusTable::doInitDirectTable();
}

Lpm11Convertor::Lpm11Convertor()
    : DirectConvertor({.words = Lpm11Row::words, .staticWords = {{Lpm11Row::controlWord, 0xFFFFFFFF}}}) {}

Lpm11Convertor::~Lpm11Convertor() = default;

Lpm11Convertor::HwIndex Lpm11Convertor::hwIndexFromKey(LpmKey const& key) const {
    return U32{key.vrf()} << keyBits | key.prefix().address().hostOrder() >> addressShift;
}

LpmKey Lpm11Convertor::keyFromHwIndex(HwIndex index) const {
    return {static_cast<U8>(index >> keyBits),
            Lanvo::Prefix(IpAddr::fromHostOrder(index << addressShift), keyBits)};
}

void Lpm11Convertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    U32 const tableSize = profile()->numVrfs << keyBits;
    BELMO_ASSERT(tableSize != 0);
    BELMO_ASSERT(profile()->numVrfs <= maxVrfs);
    for (U32 processor = 0; processor < profile()->numProcessors(l3); ++processor) {
        auto const prefix = Sorn::_fmt("ingress/processor_l3[%u]/", processor);
        auto const name =
            createDirectTable(processor, state, TableConstants::tableName(tableIndex), tableSize - 1,
                              NerioSwitchApi::addressesOf(prefix, {"hash_data0", "hash_ctl"}));
        createHitBitTable(processor, state, 0, tableSize - 1, name, hitBitMapping(prefix));
    }
}

void Lpm11Convertor::handleHitBitEntry(HwTableId id, HwIndex index) {
    SORN_TRACE(handle, 8, "Read Hit bit {} tableId: {}", index, id);
    auto const found = hitBitTables().find(id);
    auto const hitTable = found == hitBitTables().end() ? nullptr : found->second;
    BELMO_ASSERT(hitTable);
    auto const hit = hitTable->entry(index);
    if (hit) table().lastHitIs(keyFromHwIndex(index), hit->time());
}

std::vector<NerioSwitchApi::RowLayout> Lpm11Convertor::rowLayouts(HwTableId /*id*/) const {
    return {NerioSwitchApi::rowLayout(Lpm11Row::words,
                                      NerioSwitchApi::rowFields(Lpm11Row(profile()->hwApi).fields()))};
}

void Lpm11Convertor::setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const {
    auto* const words = reinterpret_cast<U32*>(buffer);
    Lpm11Row::row.set(words, index);
    Lpm11Row::writeStrobe.set(words, 1);
    Lpm11Row::table.set(words, Lpm11Row::lpm11Table);
}

void Lpm11Convertor::encode(Lpm11Entry const& item, U32* words) const {
    Lpm11Row const row(profile()->hwApi);
    auto const& cellResult = item.result().cellResult();
    if (cellResult.nexthopIndexes().valid()) BELMO_ASSERT(cellResult.realPrefixLen() <= 11);
    Lpm11Row::encoding.set(words, cellResult.hwEncoding(true, keyBits, profile()->hwApi));
    Lpm11Row::valid.set(words, item.valid());
    row.cpuTrap.set(words, item.result().cpuTrap());
    row.maskLength0.set(words, maskCode(cellResult.maskLength0()));
    row.maskLength1.set(words, maskCode(cellResult.maskLength1()));
    row.parity.set(words, 0);
    row.parity.set(words, NerioSwitch::parity32Bit(words[0]));
    Lpm11Row::realPrefixLen.set(words, cellResult.realPrefixLen());
}

void Lpm11Convertor::decode(U32 const* words, Lpm11Entry& item) const {
    Lpm11Row const row(profile()->hwApi);
    auto const encoding = static_cast<U32>(Lpm11Row::readEncoding.get(words));
    auto const realPrefixLen = static_cast<U32>(Lpm11Row::readPrefixLen.get(words));
    auto cell = EntryCellResult::fromHwEncoding(encoding, keyBits, true, realPrefixLen, profile()->hwApi);
    cell.maskLength0Is(maskOf(row.maskLength0.get(words)));
    cell.maskLength1Is(maskOf(row.maskLength1.get(words)));
    item.validIs(Lpm11Row::valid.get(words) != 0);
    item.resultIs(Lpm11Result().cellResultIs(cell).cpuTrapIs(row.cpuTrap.get(words) != 0));
    if (item.valid() && cell.nexthopIndexes().valid()) BELMO_ASSERT(realPrefixLen <= 11);
}

Belmo::Ptr<Lpm11Entry> Lpm11EntryIs(LpmKey const& key) {
    return Belmo::make<Lpm11Entry>(key);
}

Belmo::Ptr<Lpm11Table> Lpm11TableIs(Belmo::String const& name) {
    return Belmo::make<Lpm11Table>(name);
}

Belmo::Ptr<Lpm11Table> lpm11TableFactory(Belmo::String const& name) {
    return Lpm11TableIs(name);
}

Belmo::Ptr<Lpm11Convertor> lpm11ConvertorFactory() {
    return Belmo::make<Lpm11Convertor>();
}

}  // namespace NerioSwitchTable

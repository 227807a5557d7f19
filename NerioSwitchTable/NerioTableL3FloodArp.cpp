#include "NerioSwitchTable/NerioTableL3FloodArp.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Belmo/Assert.h"
#include "NerioSwitch/Parity.h"

#include "NerioSwitchTable/NerioEgressMemory.h"
#include "NerioSwitchTable/NerioFloodCount.h"

namespace NerioSwitchTable {

namespace {

Sorn::TraceHandle handle("NerioTableL3FloodArp");

constexpr auto egress = NerioSwitch::TableLayoutEnum::tableLayoutEgress;
constexpr U32 staticBits = 0xFFFFFFF0;

/** The line's number in the memory, of the row's two lines in each of two banks. */
U32 lineAddress(U32 row, U8 line) {
    U32 const first = line < 2 ? L3FloodArpRow::evenLine : L3FloodArpRow::oddLine;
    return first + 2 * row + (line % 2 == 0 ? 0 : L3FloodArpRow::bank);
}

}  // namespace

Belmo::String L3FloodArpResult::resultString() const {
    return Sorn::text(*this);
}

L3FloodArpEntry::~L3FloodArpEntry() = default;

Belmo::String L3FloodArpEntry::toStrep() const {
    return namedText("L3FloodArpEntry");
}

L3FloodArpTable::L3FloodArpTable(Belmo::String const& name) : DirectTable<L3FloodArpEntry>(name) {
    hwTablesDuplicateIs(true);
}

L3FloodArpTable::~L3FloodArpTable() = default;

Belmo::Ptr<DirectBaseConvertor> L3FloodArpTable::profileConvertorFactory() const {
    return l3FloodArpConvertorFactory();
}

Sorn::TraceHandle const& L3FloodArpTable::trace() const {
    return handle;
}

L3FloodArpConvertor::L3FloodArpConvertor()
    : DirectConvertor({.words = L3FloodArpRow::words,
                       .staticWords = {{1, staticBits}, {3, staticBits}, {5, staticBits}, {7, staticBits}},
                       .readStrobeBit = 14,
                       .writeStrobeBit = 15}) {}

L3FloodArpConvertor::~L3FloodArpConvertor() = default;

void L3FloodArpConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    auto const* const numSupportedEntriesFromProfile = numFloodNexthops(*profile());
    BELMO_ASSERT_TEXT(numSupportedEntriesFromProfile != nullptr && *numSupportedEntriesFromProfile != 0,
                      "numSupportedEntriesFromProfile");
    U32 const count = *numSupportedEntriesFromProfile;
    SORN_TRACE(handle, 3, "Num supported flood nexthops = {}", count);
    for (U32 processor = 0; processor < profile()->numProcessors(egress); ++processor) {
        createDirectTable(processor, state, "L3FloodArp", count - 1, egressMemoryRegisters(processor));
    }
}

std::vector<NerioSwitchApi::RowLayout> L3FloodArpConvertor::rowLayouts(HwTableId /*id*/) const {
    std::vector<NerioSwitchApi::RowField> fields;
    for (U8 line = 0; line < L3FloodArpRow::lines; ++line)
        std::ranges::copy(L3FloodArpRow::fields(line), std::back_inserter(fields));
    return {NerioSwitchApi::rowLayout(L3FloodArpRow::words, std::move(fields))};
}

void L3FloodArpConvertor::setStaticBuffer(HwIndex index, Sorn::BytePtr buffer) const {
    auto* const words = reinterpret_cast<U32*>(buffer);
    for (U8 line = 0; line < L3FloodArpRow::lines; ++line) {
        L3FloodArpRow::address(line).set(words, lineAddress(index, line));
        L3FloodArpRow::writeStrobe(line).set(words, 1);
    }
}

void L3FloodArpConvertor::encode(L3FloodArpEntry const& item, U32* words) const {
    auto const address = item.result().ethAddr();
    auto const& bytes = address.bytes();
    U32 const high = U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8 | bytes[3];
    U32 const low = U32{bytes[4]} << 8 | bytes[5];
    for (U8 line = 0; line < L3FloodArpRow::lines; ++line) {
        L3FloodArpRow::ethAddrHigh(line).set(words, high);
        L3FloodArpRow::ethAddrLow(line).set(words, low);
        L3FloodArpRow::vlanId(line).set(words, item.result().vlanId().value());
        L3FloodArpRow::unused(line).set(words, 0);
        L3FloodArpRow::parity(line).set(words, NerioSwitch::parity32Bit(words[L3FloodArpRow::data(line)]));
    }
}

void L3FloodArpConvertor::decode(U32 const* words, L3FloodArpEntry& item) const {
    constexpr U8 evenLine = 0;
    constexpr U8 oddLine = 2;
    U64 const address =
        L3FloodArpRow::ethAddrHigh(evenLine).get(words) << 16 | L3FloodArpRow::ethAddrLow(oddLine).get(words);
    auto const vlanId = static_cast<U32>(L3FloodArpRow::vlanId(oddLine).get(words));
    std::array<U8, 6> bytes{};
    for (U32 i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<U8>(address >> (40 - 8 * i));
    auto const result = L3FloodArpResult().ethAddrIs(Lanvo::EthAddr(bytes)).vlanIdIs(vlanId);
    item.resultIs(result);
    item.validIs(result != L3FloodArpResult());
}

Belmo::Ptr<L3FloodArpEntry> L3FloodArpEntryIs(NerioSwitch::L3FloodId key) {
    return Belmo::make<L3FloodArpEntry>(key);
}

Belmo::Ptr<L3FloodArpTable> L3FloodArpTableIs(Belmo::String const& name) {
    return Belmo::make<L3FloodArpTable>(name);
}

Belmo::Ptr<L3FloodArpTable> l3FloodArpTableFactory(Belmo::String const& name) {
    return L3FloodArpTableIs(name);
}

Belmo::Ptr<L3FloodArpConvertor> l3FloodArpConvertorFactory() {
    return Belmo::make<L3FloodArpConvertor>();
}

}  // namespace NerioSwitchTable

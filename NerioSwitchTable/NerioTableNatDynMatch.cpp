#include "NerioSwitchTable/NerioTableNatDynMatch.h"

#include <array>
#include <fmt/format.h>

#include "Belmo/Assert.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioHitBitUtil.h"

namespace NerioSwitchTable {

using NerioSwitch::NatType;
using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableNatDynMatch");

constexpr TableIndex tableIndex = 55;
constexpr U32 rowsPerWay = 1024;
constexpr U32 ways = 4;
constexpr U8 rowBits = 10;

constexpr NerioSwitchApi::PhysicalHashGeometry geometryOf(U32 tableId) {
    return {.tableId = tableId,
            .tableSize = rowsPerWay,
            .hashBits = rowBits,
            .numHashTables = ways,
            .rowSlots = 1,
            .entryWords = 6,
            .hitBitsSupported = 1,
            .placementFlag = 1};
}

/** Words 0 to 3 are data. Word 5 keeps in the shadow what a row's number implies. */
struct NatDynMatchRow {
    static constexpr U8 addressWord = 5;
    static constexpr BitField wholeSip{"wholeSip", 32 * addressWord, 32};
    static constexpr BitField sip{"sip", 0, 32 - rowBits};
    static constexpr BitField dip{"dip", 22, 32};
    static constexpr BitField sport{"sport", 54, 16};
    static constexpr BitField dport{"dport", 70, 16};
    static constexpr BitField profile{"profile", 86, 6};
    static constexpr BitField type{"type", 95, 2};
    static constexpr NatMatchResultFields result{.valid = {"valid", 92, 1},
                                                 .proto = {"proto", 93, 2},
                                                 .session = {"session", 97, 17},
                                                 .parity = {"parity", 114, 1},
                                                 .trapToCpu = {"trapToCpu", 115, 1},
                                                 .rewriteIndex = {"rewriteIndex", 116, 6},
                                                 .l3LagIndex = {"l3LagIndex", 122, 6}};
    static constexpr NatMatchControl control{rowBits};
    static constexpr std::array fields{sip,
                                       dip,
                                       sport,
                                       dport,
                                       profile,
                                       type,
                                       result.valid,
                                       result.proto,
                                       result.session,
                                       result.parity,
                                       result.trapToCpu,
                                       result.rewriteIndex,
                                       result.l3LagIndex,
                                       control.row,
                                       control.unused,
                                       NatMatchControl::way,
                                       NatMatchControl::readStrobe,
                                       NatMatchControl::writeStrobe,
                                       NatMatchControl::select,
                                       wholeSip};
};
static_assert(fieldsFit(NatDynMatchRow::fields, 6) && fieldsDisjoint(NatDynMatchRow::fields));

HashInput packed(NatMatchKey const& key) {
    HashInput input;
    U8* const bytes = input.bytes.data();
    bitStreamSet(bytes, 0, 32, key.sip().hostOrder());
    bitStreamSet(bytes, 32, 32, key.dip().hostOrder());
    bitStreamSet(bytes, 64, 16, key.sport());
    bitStreamSet(bytes, 80, 16, key.dport());
    bitStreamSet(bytes, 96, 6, key.ingressProfileId());
    input.bits = 102;
    return input;
}

NerioSwitch::CrcHashes hashesOf(HashInput const& input) {
    return NerioSwitch::crc10Hashes(input.bytes.data(), input.bits);
}

NatMatchKey keyIn(U32 const* words) {
    return NatMatchKey()
        .natTypeIs(hwValToNatType(static_cast<U8>(NatDynMatchRow::type.get(words))))
        .sipIs(Lanvo::IpAddr::fromHostOrder(words[NatDynMatchRow::addressWord]))
        .sportIs(static_cast<U16>(NatDynMatchRow::sport.get(words)))
        .dipIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(NatDynMatchRow::dip.get(words))))
        .dportIs(static_cast<U16>(NatDynMatchRow::dport.get(words)))
        .ingressProfileIdIs(static_cast<U16>(NatDynMatchRow::profile.get(words)));
}

}  // namespace

Belmo::String NatDynMatchResult::stringValue() const {
    return Sorn::_fmt("valid=%d proto=%u natSessionId=%u trapToCpu=%d l3LagIndex=%u rewriteIndex=%s", valid_,
                      U32{proto_.value()}, natSessionId_.value(), trapToCpu_, U32{l3LagIndex_.value()},
                      rewriteIndex_.text().c_str());
}

U8 natTypeToHwVal(NatType natType) {
    switch (natType.value()) {
        case NatType::sourceAddress:
        case NatType::dynamicSource:
            return 0;
        case NatType::dynamicSourcePort:
            return 1;
        case NatType::dynamicDestination:
            return 2;
        default:
            BELMO_ASSERT(false);
            return 0;
    }
}

NatType hwValToNatType(U8 value) {
    if (value > NatType::dynamicDestination - NatType::dynamicSource) BELMO_ASSERT(false);
    return NatType::dynamicSource + value;
}

NatDynMatchTableCuckooEntry::NatDynMatchTableCuckooEntry(NatMatchKey const& key)
    : HashTableItem(key), hashes_(hashesOf(packed(key))) {}

NatDynMatchTableCuckooEntry::~NatDynMatchTableCuckooEntry() = default;

U32 NatDynMatchTableCuckooEntry::getHash(U8 tableId) const {
    U32 const hash = hashes_.way(tableId);
    SORN_TRACE(handle, 9, "calculated hash for tableId {}: 0x{:x}", tableId, hash);
    return hash;
}

HashInput NatDynMatchTableCuckooEntry::hashInput() const {
    return packed(key());
}

Belmo::String NatDynMatchTableCuckooEntry::toStrep() const {
    return fmt::format("NatDynMatchTableCuckooEntry( {}, {} )", key().stringValue(), result().stringValue());
}

Belmo::String toStrep(Belmo::Ptr<NatDynMatchTableCuckooEntry const> const& item) {
    return item ? item->toStrep() : "NULL";
}

NatDynMatchPhysicalHashProperties::NatDynMatchPhysicalHashProperties(U32 tableId)
    : PhysicalHashProperties(geometryOf(tableId)) {}

NatDynMatchPhysicalHashProperties::~NatDynMatchPhysicalHashProperties() = default;

NatDynMatchTable::NatDynMatchTable(Belmo::String const& name, U8 pipeline)
    : NatHashTable(name, pipeline, true, handle) {}

NatDynMatchTable::~NatDynMatchTable() = default;

Belmo::Ptr<NatDynMatchTableCuckooEntry> NatDynMatchTable::createHashItem(NatMatchKey const& key) {
    SORN_TRACE(handle, 8, "createHashItem {} pipeline={}", key.stringValue(), pipeline());
    auto cuckooEntry = hashItemIs(key);
    BELMO_ASSERT(cuckooEntry);
    return cuckooEntry;
}

U32 NatDynMatchTable::swTableId() const {
    return tableIndex + pipeline();
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> NatDynMatchTable::profileConvertorFactory() const {
    return Belmo::make<NatDynMatchConvertor>(pipeline());
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> NatDynMatchTable::hashBaseHelperFactory() const {
    return Belmo::make<NatDynMatchHelper>();
}

Belmo::Ptr<NatDynMatchTableCuckooEntry> NatDynMatchTable::newItem(NatMatchKey const& key) const {
    return Belmo::make<NatDynMatchTableCuckooEntry>(key);
}

NatDynMatchHelper::NatDynMatchHelper() : NatHashHelper(tableIndex) {}

NatDynMatchHelper::~NatDynMatchHelper() = default;

Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> NatDynMatchHelper::doGetPhysTableProperties() const {
    return natDynMatchPhysicalHashPropertiesFactory(natTable().swTableId());
}

void NatDynMatchHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) {
    auto const* const swTbl = static_cast<NatDynMatchTable const*>(swTable());
    BELMO_ASSERT(swTbl);
    NatDynMatchRow::control.set(location, (swTbl->pipeline() & 1u) + 1, reinterpret_cast<U32*>(buffer));
}

void NatDynMatchHelper::setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                                    Sorn::BytePtr buffer) {
    auto const& item = static_cast<NatDynMatchTableCuckooEntry const&>(*entry);
    auto const& key = item.key();
    U32 const sip = key.sip().hostOrder();
    auto* const words = reinterpret_cast<U32*>(buffer);
    NatDynMatchRow::sip.set(words, sip >> rowBits);
    NatDynMatchRow::dip.set(words, key.dip().hostOrder());
    NatDynMatchRow::sport.set(words, key.sport());
    NatDynMatchRow::dport.set(words, key.dport());
    NatDynMatchRow::profile.set(words, key.ingressProfileId());
    NatDynMatchRow::type.set(words, natTypeToHwVal(key.natType()));
    NatDynMatchRow::result.encode(item.result(), handle, words);
    NatDynMatchRow::result.setParity(words);
    setStaticBuffer(location, buffer);
    words[NatDynMatchRow::addressWord] = sip;
}

std::vector<NerioSwitchApi::RowLayout> NatDynMatchHelper::rowLayouts() const {
    return {NerioSwitchApi::rowLayout(geometryOf(0).entryWords,
                                      NerioSwitchApi::rowFields(NatDynMatchRow::fields))};
}

NatDynMatchHelper::Ptr NatDynMatchHelper::decodeHwEntry(HwIndex index) {
    auto const words = storedWords(index);
    auto const item =
        itemOf(keyIn(words.data()), NatDynMatchRow::result.decode<NatDynMatchResult>(words.data()));
    U32 const stashedIp = words[NatDynMatchRow::addressWord];
    auto const cmpSipMsb = NatDynMatchRow::sip.get(words.data());
    bool const storesKey = stashedIp >> rowBits == cmpSipMsb;
    if (!storesKey) SORN_TRACE(handle, 7, "{} stashedIp= {} cmpSipMsb={}", index, stashedIp, cmpSipMsb);
    checkItem(*item, index, words, storesKey);
    return item;
}

NatDynMatchConvertor::NatDynMatchConvertor(U8 pipeline) : NatMatchBaseConvertor(pipeline, tableIndex) {}

NatDynMatchConvertor::~NatDynMatchConvertor() = default;

void NatDynMatchConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    createMatchTables(state, pipeline());
}

/** Two ways lie behind one another in one bit. */
void NatDynMatchConvertor::registerHitBits(NerioSwitchApi::HitBitReadInfo& info) const {
    constexpr U32 firstRead = 1024;
    constexpr U32 rowsPerBit = 2 * rowsPerWay;
    U32 const bit = 3 + (pipeline() & 1u);
    hitBitRowsAre(info, bit, 0, rowsPerBit, firstRead);
    hitBitRowsAre(info, bit + 9, rowsPerBit, rowsPerBit, firstRead);
}

Belmo::Ptr<NatDynMatchTable> NatDynMatchTableIs(Belmo::String const& name, U8 pipeline) {
    return Belmo::make<NatDynMatchTable>(name, pipeline);
}

Belmo::Ptr<NatDynMatchTable> natDynMatchTableFactory(Belmo::String const& name, U8 pipeline) {
    return NatDynMatchTableIs(name, pipeline);
}

Belmo::Ptr<NatDynMatchPhysicalHashProperties> natDynMatchPhysicalHashPropertiesFactory(U32 tableId) {
    return Belmo::make<NatDynMatchPhysicalHashProperties>(tableId);
}

}  // namespace NerioSwitchTable

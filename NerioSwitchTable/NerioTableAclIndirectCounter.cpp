#include "NerioSwitchTable/NerioTableAclIndirectCounter.h"

#include <array>
#include <cstring>
#include <fmt/ostream.h>

#include "Belmo/Assert.h"
#include "NerioSwitch/CrcHash.h"
#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/BitField.h"

namespace NerioSwitchTable {

using NerioSwitch::AclIndirectCounterHashKey;
using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableAclIndirectCounter");

constexpr TableIndex tableIndex = 72;
constexpr U32 tablesPerPair = 12;
constexpr U8 keyBits = 16;
constexpr U32 allBits = 0xFFFFFFFF;

constexpr NerioSwitchApi::PhysicalHashGeometry geometry(U32 tableId) {
    return {.tableId = tableId,
            .tableSize = 2048,
            .hashBits = 11,
            .numHashTables = 2,
            .rowSlots = 1,
            .entryWords = 7,
            .hitBitsSupported = 0,
            .placementFlag = 0};
}

/** Word 0 is the entry, word 5 the control word; word 6 keeps in the shadow what the row's number implies. */
struct AclCounterRow {
    static constexpr U8 controlWord = 5;
    static constexpr U16 control = 32 * controlWord;
    static constexpr U8 impliedBits = 11;
    static constexpr BitField storedKey{"storedKey", 0, 5};
    static constexpr BitField result{"result", 5, 12};
    static constexpr BitField parity{"parity", 17, 1};
    static constexpr BitField row{"row", control, impliedBits};
    static constexpr BitField table{"table", control + 11, 1};
    static constexpr BitField physTable{"physTable", control + 13, 3};
    static constexpr BitField writeStrobe{"writeStrobe", control + 18, 1};
    static constexpr BitField impliedKey{"impliedKey", 32 * 6, impliedBits};
    static constexpr std::array fields{storedKey, result,    parity,      row,
                                       table,     physTable, writeStrobe, impliedKey};
    /** What the control word calls this table among those of the processor. */
    static constexpr U32 counterTable = 4;
};
static_assert(fieldsFit(AclCounterRow::fields, geometry(0).entryWords) &&
              fieldsDisjoint(AclCounterRow::fields));

}  // namespace

AclIndirectCounterHashTableCuckooEntry::~AclIndirectCounterHashTableCuckooEntry() = default;

U8 AclIndirectCounterHashTableCuckooEntry::copyKeyToBuffer(U8* buffer, U8 bufferSize) const {
    std::memset(buffer, 0, bufferSize);
    bitStreamSet(buffer, 0, keyBits, key().value());
    return keyBits;
}

U32 AclIndirectCounterHashTableCuckooEntry::getHash(U8 hashNumber) const {
    std::array<U8, 2> buffer{};
    U8 const bits = copyKeyToBuffer(buffer.data(), buffer.size());
    U32 const row = NerioSwitch::crc11Hash(buffer.data(), hashNumber, bits);
    SORN_TRACE(handle, 9, "getHash {}: {}", hashNumber, row);
    return row;
}

HashInput AclIndirectCounterHashTableCuckooEntry::hashInput() const {
    HashInput input;
    input.bits = copyKeyToBuffer(input.bytes.data(), static_cast<U8>(input.bytes.size()));
    return input;
}

Belmo::String AclIndirectCounterHashTableCuckooEntry::toStrep() const {
    return Sorn::_fmt("AclIndirectCounterHashTableCuckooEntry( %u, %u )", U32{key().value()},
                      U32{result().value()});
}

AclCounterPhysicalHashProperties::AclCounterPhysicalHashProperties(U32 tableId)
    : PhysicalHashProperties(geometry(tableId)) {}

AclCounterPhysicalHashProperties::~AclCounterPhysicalHashProperties() = default;

AclIndirectCounterHashTable::AclIndirectCounterHashTable(Belmo::String const& name, U8 pipelinePair)
    : HashTable<AclIndirectCounterHashTableCuckooEntry, AclIndirectCounterHashEntryStatus>(name),
      pipelinePair_(pipelinePair) {
    statusSupportedIs(true);
    hitBitsSupportedIs(false);
    hwTablesDuplicateIs(false);
}

AclIndirectCounterHashTable::~AclIndirectCounterHashTable() = default;

U32 AclIndirectCounterHashTable::swTableId() const {
    return pipelinePair_ * tablesPerPair + tableIndex;
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> AclIndirectCounterHashTable::profileConvertorFactory()
    const {
    return aclIndirectCounterHashConvertorFactory();
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> AclIndirectCounterHashTable::hashBaseHelperFactory() const {
    return aclIndirectCounterHashHelperFactory();
}

Belmo::Ptr<AclIndirectCounterHashTableCuckooEntry> AclIndirectCounterHashTable::newItem(
    AclIndirectCounterHashKey const& key) const {
    return Belmo::make<AclIndirectCounterHashTableCuckooEntry>(key);
}

Sorn::TraceHandle const& AclIndirectCounterHashTable::trace() const {
    return handle;
}

AclIndirectCounterHashHelper::AclIndirectCounterHashHelper() : NerioTableHashHelper(tableIndex) {}

AclIndirectCounterHashHelper::~AclIndirectCounterHashHelper() = default;

Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> AclIndirectCounterHashHelper::doGetPhysTableProperties()
    const {
    return Belmo::make<AclCounterPhysicalHashProperties>(counterTable().swTableId());
}

void AclIndirectCounterHashHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location,
                                                   Sorn::BytePtr buffer) {
    BELMO_ASSERT(swTable());
    auto* const words = reinterpret_cast<U32*>(buffer);
    AclCounterRow::row.set(words, location.row);
    AclCounterRow::table.set(words, location.table);
    AclCounterRow::physTable.set(words, AclCounterRow::counterTable);
    AclCounterRow::writeStrobe.set(words, 1);
}

void AclIndirectCounterHashHelper::setHwBuffer(PtrConst const& entry,
                                               Dovra::Cuckoo::CuckooLocation const& location,
                                               Sorn::BytePtr buffer) {
    auto const& item = static_cast<AclIndirectCounterHashTableCuckooEntry const&>(*entry);
    SORN_TRACE(handle, 8, "setHwBuffer {}: {}", fmt::streamed(location), item.toStrep());
    auto* const words = reinterpret_cast<U32*>(buffer);
    U32 const key = item.key().value();
    AclCounterRow::storedKey.set(words, key >> AclCounterRow::impliedBits);
    AclCounterRow::result.set(words, item.result().value());
    AclCounterRow::parity.set(words, 0);
    AclCounterRow::parity.set(words, NerioSwitch::parity32Bit(words[0]));
    AclCounterRow::impliedKey.set(words, key);
    setStaticBuffer(location, buffer);
}

AclIndirectCounterHashHelper::Ptr AclIndirectCounterHashHelper::nullHashEntry() {
    return counterTable().createHashEntry(AclIndirectCounterHashKey(), false);
}

std::vector<NerioSwitchApi::RowLayout> AclIndirectCounterHashHelper::rowLayouts() const {
    return {
        NerioSwitchApi::rowLayout(geometry(0).entryWords, NerioSwitchApi::rowFields(AclCounterRow::fields))};
}

AclIndirectCounterHashHelper::Ptr AclIndirectCounterHashHelper::decodeHwEntry(HwIndex index) {
    SORN_TRACE(handle, 9, "decodeHwEntry {}", index);
    BELMO_ASSERT(swTable());
    auto const words = storedWords(index);
    U64 const key = AclCounterRow::storedKey.get(words.data()) << AclCounterRow::impliedBits |
                    AclCounterRow::impliedKey.get(words.data());
    if (key == 0) {
        SORN_TRACE(handle, 7, "not decoding entry: {}", index);
        return nullHashEntry();
    }
    auto const item = counterTable().createHashEntry(key, true);
    item->resultIs(AclCounterRow::result.get(words.data()));
    item->validIs(true);
    SORN_TRACE(handle, 7, "Decoded Entry: {}", item->toStrep());
    return item;
}

AclIndirectCounterHashConvertor::AclIndirectCounterHashConvertor() {
    strobeBitsAre(17, 18);
    hwStaticWordIs(AclCounterRow::controlWord, allBits);
    capacitySupportedIs(false);
}

AclIndirectCounterHashConvertor::~AclIndirectCounterHashConvertor() = default;

void AclIndirectCounterHashConvertor::handleInitialized() {
    hwStaticWordIs(AclCounterRow::controlWord, allBits);
}

void AclIndirectCounterHashConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    BELMO_ASSERT(swTables() == 1);
    U32 const pair = static_cast<AclIndirectCounterHashTable&>(*swTable(0)).pipelinePair();
    auto const registers = NerioSwitchApi::addressesOf(
        Sorn::_fmt("ingress/processor_acl[%u]/", pair),
        {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_data4", "hash_ctl"});
    createHashHwTable(state, tableIndex, pair, registers);
}

Belmo::Ptr<AclIndirectCounterHashTable> AclIndirectCounterHashTableIs(Belmo::String const& name,
                                                                      U8 pipelinePair) {
    return Belmo::make<AclIndirectCounterHashTable>(name, pipelinePair);
}

Belmo::Ptr<AclIndirectCounterHashTable> aclIndirectCounterHashTableFactory(Belmo::String const& name,
                                                                           U8 pipelinePair) {
    return AclIndirectCounterHashTableIs(name, pipelinePair);
}

Belmo::Ptr<AclIndirectCounterHashConvertor> aclIndirectCounterHashConvertorFactory() {
    return Belmo::make<AclIndirectCounterHashConvertor>();
}

Belmo::Ptr<AclIndirectCounterHashHelper> aclIndirectCounterHashHelperFactory() {
    return Belmo::make<AclIndirectCounterHashHelper>();
}

}  // namespace NerioSwitchTable

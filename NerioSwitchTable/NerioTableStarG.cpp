#include "NerioSwitchTable/NerioTableStarG.h"

#include <cstring>
#include <fmt/format.h>

#include "Belmo/Assert.h"
#include "NerioSwitch/CrcHash.h"
#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioTableLpmTables.h"

namespace NerioSwitchTable {

using NerioSwitch::IngressPortMask;
using NerioSwitch::MrouteKey;
using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableStarG");

constexpr U32 swTableNumber = 44;
constexpr TableIndex tableIndex = 67;
constexpr U8 hashedBits = 41;
/** What is compared when a row is read back: a bit less than is stored. */
constexpr U32 comparedGroupBits = 0x7FFF;
constexpr NerioSwitchApi::PhysicalHashGeometry geometry{.tableId = tableIndex,
                                                        .tableSize = 4096,
                                                        .hashBits = 12,
                                                        .numHashTables = 2,
                                                        .rowSlots = 1,
                                                        .entryWords = LpmRowLayout::words,
                                                        .hitBitsSupported = 1,
                                                        .placementFlag = 1};

U32 storedGroupOf(MrouteKey const& key) {
    return key.group().address().hostOrder() >> 12 & 0xFFFFu;
}

}  // namespace

Belmo::String StarGResult::resultString() const {
    return Sorn::_fmt("vlanGroupId: %d  portMask: 0x%lX", vlanGroupId().value(), portMask().value());
}

StarGTableCuckooEntry::~StarGTableCuckooEntry() = default;

U32 StarGTableCuckooEntry::hwCompareEncoding() const {
    return storedGroupOf(key()) | U32{key().vlanId().value()} << 16;
}

U64 StarGTableCuckooEntry::hashNumber() const {
    U64 const group = key().group().address().hostOrder() & 0xFFFFFFFu;
    return group | U64{key().vlanId().value()} << 28 | U64{1} << 40;
}

U32 StarGTableCuckooEntry::getHash(U8 way) const {
    U64 const number = hashNumber();
    return NerioSwitch::crc12Hash(reinterpret_cast<U8 const*>(&number), way, hashedBits);
}

HashInput StarGTableCuckooEntry::hashInput() const {
    U64 const number = hashNumber();
    HashInput input;
    input.bits = hashedBits;
    std::memcpy(input.bytes.data(), &number, sizeof number);
    return input;
}

Belmo::String StarGTableCuckooEntry::toStrep() const {
    return fmt::format("StarGTableCuckooEntry( {}, {} )", Sorn::text(key()), result().resultString());
}

StarGTable::StarGTable(Belmo::String const& name) : HashTable<StarGTableCuckooEntry, StarGEntryStatus>(name) {
    statusSupportedIs(true);
    hitBitsSupportedIs(true);
    hwTablesDuplicateIs(true);
}

StarGTable::~StarGTable() = default;

U32 StarGTable::swTableId() const {
    return swTableNumber;
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> StarGTable::profileConvertorFactory() const {
    return Lpm29ConvertorIs();
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> StarGTable::hashBaseHelperFactory() const {
    return Belmo::make<StarGHelper>();
}

Belmo::Ptr<StarGTableCuckooEntry> StarGTable::hashItemIs(MrouteKey const& key) {
    auto const itemsBefore = cachedItems();
    auto item = HashTable::createHashEntry(key, true);
    if (cachedItems() != itemsBefore) publisher().publishChangeRecursive("hashItem", key);
    return item;
}

Belmo::Ptr<StarGTableCuckooEntry> StarGTable::newItem(MrouteKey const& key) const {
    return Belmo::make<StarGTableCuckooEntry>(key);
}

Sorn::TraceHandle const& StarGTable::trace() const {
    return handle;
}

StarGPhysicalHashProperties::StarGPhysicalHashProperties() : PhysicalHashProperties(geometry) {}

StarGPhysicalHashProperties::~StarGPhysicalHashProperties() = default;

StarGHelper::StarGHelper() : NerioTableHashHelper(lpmStage(29).tableIndex) {}

StarGHelper::~StarGHelper() = default;

Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> StarGHelper::doGetPhysTableProperties() const {
    return Belmo::make<StarGPhysicalHashProperties>();
}

void StarGHelper::doInit() {
    NerioTableHashHelper::doInit();
    layout_.emplace(profile()->numPorts);
    BELMO_ASSERT(layout_->fits());
}

bool StarGHelper::entryOwned(HwIndex index) const {
    auto const words = storedWords(index);
    return StarGRowLayout::multicast.get(words.data()) != 0 && StarGRowLayout::valid.get(words.data()) != 0;
}

void StarGHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) {
    setLpmControl(location, hashTableId(), reinterpret_cast<U32*>(buffer));
}

void StarGHelper::setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                              Sorn::BytePtr buffer) {
    auto const& item = static_cast<StarGTableCuckooEntry const&>(*entry);
    auto* const words = reinterpret_cast<U32*>(buffer);
    StarGRowLayout::compare.set(words, item.hwCompareEncoding());
    StarGRowLayout::multicast.set(words, 1);
    StarGRowLayout::valid.set(words, item.valid());
    StarGRowLayout::vlanGroupId.set(words, item.result().vlanGroupId().value());
    layout_->portMask.set(words, item.result().portMask().hardwareBitmask(profile()->numPorts));
    layout_->parity.set(words, 0);
    layout_->parity.set(words, NerioSwitch::parityU32Array(words, StarGRowLayout::parityWords));
    setStaticBuffer(location, buffer);
    StarGRowLayout::group.set(words, item.key().group().address().hostOrder());
}

StarGHelper::Ptr StarGHelper::nullHashEntry() {
    return starGTable().createHashEntry(MrouteKey({}, {}, Bridging::VlanIdOrNone::none), false);
}

std::vector<NerioSwitchApi::RowLayout> StarGHelper::rowLayouts() const {
    auto const isMulticast = [](std::span<U32 const> row) {
        return StarGRowLayout::multicast.get(row.data()) != 0;
    };
    return {NerioSwitchApi::rowLayout(
        LpmRowLayout::words,
        NerioSwitchApi::rowFields(StarGRowLayout::keyFields, layout_->resultFields(), lpmControlFields()),
        "multicast", isMulticast)};
}

StarGHelper::Ptr StarGHelper::decodeHwEntry(HwIndex index) {
    auto const words = storedWords(index);
    U32 const* const row = words.data();
    bool const multicast = StarGRowLayout::multicast.get(row) != 0;
    bool const valid = StarGRowLayout::valid.get(row) != 0;
    auto const group = Lanvo::IpAddr::fromHostOrder(static_cast<U32>(StarGRowLayout::group.get(row)));
    auto const ports = layout_->portMask.get(row);
    MrouteKey const key({{}, 32}, {group, 32}, StarGRowLayout::vlanId.get(row));
    // An empty row says the key of a route that may well stand in another row.
    auto const item = starGTable().createHashEntry(key, valid);
    item->resultIs(StarGResult()
                       .vlanGroupIdIs(StarGRowLayout::vlanGroupId.get(row))
                       .portMaskIs(IngressPortMask::ingressPortMaskFromHw(ports, profile()->numPorts)));
    item->validIs(valid);
    BELMO_ASSERT(!valid || multicast);
    // Of 16 bits of the group the row's lowest 15 are compared: a group with its bit 27 set comes back
    // marked.
    if (storedGroupOf(key) != (row[0] & comparedGroupBits)) {
        starGTable().hwInconsistentEntryIs(key, true);
        return item;
    }
    if (valid) SORN_TRACE(handle, 7, "Decoded valid entry is {}", item->toStrep());
    if (copiesDiffer(index, words)) starGTable().hwInconsistentEntryIs(key, true);
    return item;
}

Belmo::Ptr<StarGTable> StarGTableIs(Belmo::String const& name) {
    return Belmo::make<StarGTable>(name);
}

Belmo::Ptr<StarGTable> starGTableFactory(Belmo::String const& name) {
    return StarGTableIs(name);
}

Belmo::Ptr<StarGTableCuckooEntry> StarGTableCuckooEntryIs(MrouteKey const& key) {
    return Belmo::make<StarGTableCuckooEntry>(key);
}

}  // namespace NerioSwitchTable

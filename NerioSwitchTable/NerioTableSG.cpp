#include "NerioSwitchTable/NerioTableSG.h"

#include <cstring>
#include <fmt/format.h>

#include "Belmo/Assert.h"
#include "NerioSwitch/CrcHash.h"
#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/BitImage.h"

namespace NerioSwitchTable {

using Lanvo::IpAddr;
using NerioSwitch::IngressPortMask;
using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableSG");

constexpr TableIndex tableIndex = 43;
constexpr U8 hashedBits = 75;
constexpr NerioSwitchApi::PhysicalHashGeometry geometry{.tableId = tableIndex,
                                                        .tableSize = 8192,
                                                        .hashBits = 13,
                                                        .numHashTables = 3,
                                                        .rowSlots = 1,
                                                        .entryWords = SGRowLayout::words,
                                                        .hitBitsSupported = 1,
                                                        .placementFlag = 1};

template <Sorn::DescribedEnum Enum>
Enum enumOf(U32 number, char const* typeName) {
    for (auto const& enumerator : enumerators(Enum{})) {
        if (static_cast<U32>(enumerator.value) == number) return enumerator.value;
    }
    throw Belmo::RangeException(Sorn::_fmt("%s has no value %u", typeName, number));
}

template <Sorn::DescribedEnum Enum>
Enum enumOf(Belmo::String const& name, char const* typeName) {
    for (auto const& enumerator : enumerators(Enum{})) {
        if (enumerator.name == name) return enumerator.value;
    }
    throw Belmo::RangeException(Sorn::_fmt("%s has no value %s", typeName, name.c_str()));
}

/** Key bits 63:60 and on, which are the VLAN of a multicast key and the interfaces of a unicast one. */
U64 kindBits(SGKey const& key) {
    if (key.isMulticastKey()) return key.data().multicast().vlanId().value();
    return (key.data().unicast().ingressProfileId() & 0x3Fu) << 4 | key.dip().hostOrder() >> 28 | 1u << 12;
}

/** The key as it is hashed: its first 64 bits, and those above. */
std::array<U64, 2> hashNumber(SGKey const& key) {
    U64 const kind = kindBits(key);
    return {(key.dip().hostOrder() & 0xFFFFFFFu) | U64{key.sip().hostOrder()} << 28 | kind << 60, kind >> 4};
}

}  // namespace

SGEntryType SGEntryTypeInstance(U32 number) {
    return enumOf<SGEntryType>(number, "SGEntryType");
}
SGEntryType SGEntryTypeInstance(Belmo::String const& name) {
    return enumOf<SGEntryType>(name, "SGEntryType");
}
SGNatType SGNatTypeInstance(U32 number) {
    return enumOf<SGNatType>(number, "SGNatType");
}
SGNatType SGNatTypeInstance(Belmo::String const& name) {
    return enumOf<SGNatType>(name, "SGNatType");
}
SGLookupType SGLookupTypeInstance(U32 number) {
    return enumOf<SGLookupType>(number, "SGLookupType");
}
SGLookupType SGLookupTypeInstance(Belmo::String const& name) {
    return enumOf<SGLookupType>(name, "SGLookupType");
}
Belmo::String stringValue(SGEntryType value) {
    return Sorn::text(value);
}
Belmo::String stringValue(SGNatType value) {
    return Sorn::text(value);
}
Belmo::String stringValue(SGLookupType value) {
    return Sorn::text(value);
}
void sequenceToValue(Sorn::CharRange& text, SGEntryType& value) {
    value = Sorn::parse<SGEntryType>(text);
}
void sequenceToValue(Sorn::CharRange& text, SGNatType& value) {
    value = Sorn::parse<SGNatType>(text);
}
void sequenceToValue(Sorn::CharRange& text, SGLookupType& value) {
    value = Sorn::parse<SGLookupType>(text);
}

SGKey SGKey::multicastKey(NerioSwitch::MrouteKey const& route) {
    return SGKey()
        .sipIs(route.source().address())
        .dipIs(route.group().address())
        .dataIs(Multicast().vlanIdIs(route.vlanId()));
}

SGKey SGKey::unicastKey(IpAddr sip, IpAddr dip, U16 ingressProfileId) {
    return SGKey().sipIs(sip).dipIs(dip).dataIs(Unicast().ingressProfileIdIs(ingressProfileId));
}

NerioSwitch::MrouteKey SGKey::mrouteKey() const {
    return {{sip_, 32}, {dip_, 32}, data_.multicast().vlanId()};
}

Belmo::String SGKey::stringValue() const {
    auto const source = sip_.text();
    auto const destination = dip_.text();
    if (isMulticastKey()) {
        return Sorn::_fmt("MC: s = %s, g = %s, vlanId = %d", source.c_str(), destination.c_str(),
                          data_.multicast().vlanId().value());
    }
    return Sorn::_fmt("UC: sip = %s, dip = %s, ingressProfileId = %d", source.c_str(), destination.c_str(),
                      data_.unicast().ingressProfileId());
}

Belmo::String SGResult::resultString() const {
    auto const nat = Sorn::_fmt("natType: %d natSessionId: %d natEnabled: %d", static_cast<U32>(natType_),
                                natSessionId_, natEnabled_);
    if (isMulticastResult()) {
        return Sorn::_fmt("MC: vlanGroupId: %d portMask: 0x%lX %s", data_.multicast().vlanGroupId().value(),
                          data_.multicast().portMask().value(), nat.c_str());
    }
    return Sorn::_fmt("UC: l3LagIndex: %s rewriteIndex: %s %s", data_.unicast().l3LagIndex().text().c_str(),
                      data_.unicast().rewriteIndex().text().c_str(), nat.c_str());
}

SGTableCuckooEntry::~SGTableCuckooEntry() = default;

U64 SGTableCuckooEntry::hwCompareEncoding() const {
    return (key().dip().hostOrder() >> 13 & 0x7FFFu) | U64{key().sip().hostOrder()} << 15 |
           kindBits(key()) << 47;
}

U32 SGTableCuckooEntry::getHash(U8 way) const {
    auto const number = hashNumber(key());
    return NerioSwitch::crc13Hash(reinterpret_cast<U8 const*>(number.data()), way, hashedBits);
}

HashInput SGTableCuckooEntry::hashInput() const {
    auto const number = hashNumber(key());
    HashInput input;
    input.bits = hashedBits;
    std::memcpy(input.bytes.data(), number.data(), sizeof number);
    return input;
}

Belmo::String SGTableCuckooEntry::toStrep() const {
    return fmt::format("SGTableCuckooEntry( {}, {} )", key().stringValue(), result().resultString());
}

SGTable::SGTable(Belmo::String const& name) : HashTable<SGTableCuckooEntry, SGEntryStatus>(name) {
    statusSupportedIs(true);
    hitBitsSupportedIs(true);
    hwTablesDuplicateIs(true);
}

SGTable::~SGTable() = default;

U32 SGTable::swTableId() const {
    return tableIndex;
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> SGTable::profileConvertorFactory() const {
    return Belmo::make<SGConvertor>();
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> SGTable::hashBaseHelperFactory() const {
    return Belmo::make<SGHelper>();
}

void SGTable::checkKinds(SGKey const& key) const {
    auto const* const wanted = store().find(key);
    if (wanted == nullptr) return;
    SORN_TRACE(handle, 8, "handleEntry {} {}", key.stringValue(), wanted->resultString());
    BELMO_ASSERT_TEXT((key.isMulticastKey() && wanted->isMulticastResult()) ||
                          (key.isUnicastKey() && wanted->isUnicastResult()),
                      "( key.isMulticastKey() && result.isMulticastResult() ) || "
                      "( key.isUnicastKey() && result.isUnicastResult() )");
}

void SGTable::handleEntry(SGKey const& key) {
    if (initialized()) checkKinds(key);
    HashTable::handleEntry(key);
}

void SGTable::handleAllEntries() {
    for (auto const& key : keys())
        checkKinds(key);
    HashTable::handleAllEntries();
}

Belmo::Ptr<SGTableCuckooEntry> SGTable::hashItemIs(SGKey const& key) {
    auto const itemsBefore = cachedItems();
    auto item = HashTable::createHashEntry(key, true);
    if (cachedItems() != itemsBefore) publisher().publishChangeRecursive("hashItem", key);
    return item;
}

Belmo::Ptr<SGTableCuckooEntry> SGTable::newItem(SGKey const& key) const {
    return Belmo::make<SGTableCuckooEntry>(key);
}

Sorn::TraceHandle const& SGTable::trace() const {
    return handle;
}

SGHelper::SGHelper() : NerioTableHashHelper(tableIndex) {}

SGHelper::~SGHelper() = default;

bool SGHelper::natProfile() const {
    BELMO_ASSERT(profile());
    return profile()->natProfile;
}

bool SGHelper::natResultSupported() const {
    BELMO_ASSERT(profile());
    return profile()->hwApi.majorVersion() >= 6;
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> SGHelper::doGetPhysTableProperties() const {
    return Belmo::make<NerioSwitchApi::PhysicalHashProperties>(geometry);
}

void SGHelper::doInit() {
    NerioTableHashHelper::doInit();
    layout_.emplace(profile()->numPorts, natProfile(), natResultSupported());
    BELMO_ASSERT(layout_->fits());
}

void SGHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) {
    BitImage<SGRowLayout::words> image;
    image.put(layout_->row, location.row);
    image.put(layout_->way, location.table);
    image.put(layout_->writeStrobe, 1);
    image.put(layout_->tableId, hashTableId);
    image.layOver(reinterpret_cast<U32*>(buffer));
}

void SGHelper::setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                           Sorn::BytePtr buffer) {
    auto const& item = static_cast<SGTableCuckooEntry const&>(*entry);
    auto const& result = item.result();
    auto* const words = reinterpret_cast<U32*>(buffer);
    BitImage<SGRowLayout::words> image;
    image.put(SGRowLayout::compare, item.hwCompareEncoding());
    image.put(layout_->unicast, result.isUnicastResult());
    image.put(layout_->lookupType, static_cast<U64>(result.lookupType()));
    image.put(layout_->valid, item.valid());
    if (result.isMulticastResult()) {
        auto const multicast = result.data().multicast();
        image.put(layout_->vlanGroupId, multicast.vlanGroupId().value());
        image.put(layout_->portMask, multicast.portMask().hardwareBitmask(profile()->numPorts));
    } else {
        BELMO_ASSERT(natProfile());
        auto const unicast = result.data().unicast();
        // The rest of a port mask's width is zero, and both fields lie in it or before it.
        U64 const both = (unicast.rewriteIndex().value() & 0x3Fu) | U64{unicast.l3LagIndex().value()} << 6;
        image.put(layout_->vlanGroupId, both);
        image.put(layout_->portMask, both >> layout_->vlanGroupId.width);
    }
    image.put(layout_->parity, 0);
    image.put(layout_->natType, static_cast<U64>(result.natType()));
    image.put(layout_->natSessionId, result.natSessionId());
    image.put(layout_->natEnabled, result.natEnabled());
    image.put(layout_->wholeDip, item.key().dip().hostOrder());
    image.layOver(words);
    layout_->parity.set(words, NerioSwitch::parityU32Array(words, layout_->dataWords));
    setStaticBuffer(location, buffer);
}

SGHelper::Ptr SGHelper::nullHashEntry() {
    return sgTable().createHashEntry(
        SGKey().dataIs(SGKey::Multicast().vlanIdIs(Bridging::VlanIdOrNone::none)), false);
}

SGKey SGHelper::keyIn(U32 const* row) const {
    auto const sip = IpAddr::fromHostOrder(static_cast<U32>(SGRowLayout::sip.get(row)));
    auto const dip = IpAddr::fromHostOrder(static_cast<U32>(layout_->wholeDip.get(row)));
    if (layout_->unicast.get(row) != 0)
        return SGKey::unicastKey(sip, dip, static_cast<U16>(SGRowLayout::ingressProfileId.get(row)));
    auto const multicast = SGKey::Multicast().vlanIdIs(SGRowLayout::vlanId.get(row));
    return SGKey().sipIs(sip).dipIs(dip).dataIs(multicast);
}

SGResult SGHelper::resultIn(U32 const* row) const {
    auto const ports = layout_->portMask.get(row);
    SGResult result;
    if (layout_->unicast.get(row) != 0) {
        result.dataIs(SGResult::Unicast()
                          .rewriteIndexIs(layout_->rewriteIndex.get(row))
                          .l3LagIndexIs(layout_->l3LagIndex.get(row)));
    } else {
        result.dataIs(SGResult::Multicast()
                          .vlanGroupIdIs(layout_->vlanGroupId.get(row))
                          .portMaskIs(IngressPortMask::ingressPortMaskFromHw(ports, profile()->numPorts)));
    }
    return result.lookupTypeIs(static_cast<SGLookupType>(layout_->lookupType.get(row)))
        .natTypeIs(static_cast<SGNatType>(layout_->natType.get(row)))
        .natSessionIdIs(static_cast<U32>(layout_->natSessionId.get(row)))
        .natEnabledIs(layout_->natEnabled.get(row) != 0);
}

std::vector<NerioSwitchApi::RowLayout> SGHelper::rowLayouts() const {
    auto multicast = NerioSwitchApi::rowLayout(
        SGRowLayout::words,
        NerioSwitchApi::rowFields(SGRowLayout::multicastKeyFields, layout_->multicastResultFields(),
                                  layout_->commonFields()),
        "multicast");
    if (!natProfile()) return {std::move(multicast)};
    auto const isUnicast = [flag = layout_->unicast](std::span<U32 const> row) {
        return flag.get(row.data()) != 0;
    };
    return {NerioSwitchApi::rowLayout(
                SGRowLayout::words,
                NerioSwitchApi::rowFields(SGRowLayout::unicastKeyFields, layout_->unicastResultFields(),
                                          layout_->commonFields()),
                "unicast", isUnicast),
            std::move(multicast)};
}

SGHelper::Ptr SGHelper::decodeHwEntry(HwIndex index) {
    auto const words = storedWords(index);
    U32 const* const row = words.data();
    bool const valid = layout_->valid.get(row) != 0;
    auto const key = keyIn(row);
    auto const result = resultIn(row);
    // An empty row says the key of a route that may well stand in another row.
    auto const item = sgTable().createHashEntry(key, valid);
    if (item->result() != result) item->resultIs(result);
    item->validIs(valid);
    if ((key.dip().hostOrder() >> 13 & 0x7FFFu) != SGRowLayout::storedDip.get(row)) {
        sgTable().hwInconsistentEntryIs(key, true);
        return item;
    }
    if (valid) SORN_TRACE(handle, 7, "Decoded valid entry is {}", item->toStrep());
    if (copiesDiffer(index, words)) sgTable().hwInconsistentEntryIs(key, true);
    return item;
}

SGConvertor::SGConvertor() {
    strobeBitsAre(16, 17);
}

SGConvertor::~SGConvertor() = default;

void SGConvertor::controlWordIsStatic() {
    hwStaticWordIs(profile()->hwApi.majorVersion() > 5 ? 5 : 4, 0xFFFFFFFF);
}

void SGConvertor::handleInitialized() {
    controlWordIsStatic();
}

/** All L3 processors have the same rows, which count once, as those of the first pipe. */
void SGConvertor::doInitTableStats() {
    BELMO_ASSERT(capacitySupported());
    BELMO_ASSERT(swTables() == 1);
    TableGauge::TableKey const key(helper(0)->name(), "Pipe0", swTable(0)->name());
    BELMO_ASSERT(key.verifyTableKey());
    initEntryCounter(key, tableSize() * numHashTables(), 0);
}

void SGConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    controlWordIsStatic();
    bool const fiveWords = profile()->hwApi.majorVersion() >= 6;
    auto const processors = profile()->numProcessors(NerioSwitch::TableLayoutEnum::tableLayoutL3);
    for (U32 processor = 0; processor < processors; ++processor) {
        auto const prefix = Sorn::_fmt("ingress/processor_l3[%u]/", processor);
        if (fiveWords) {
            createHashCopy(processor, state, tableIndex, prefix,
                           {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_data4", "hash_ctl"},
                           SGRowLayout::firstHitBit);
        } else {
            createHashCopy(processor, state, tableIndex, prefix,
                           {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"},
                           SGRowLayout::firstHitBit);
        }
    }
}

Belmo::Ptr<SGTable> SGTableIs(Belmo::String const& name) {
    return Belmo::make<SGTable>(name);
}

Belmo::Ptr<SGTable> sGTableFactory(Belmo::String const& name) {
    return SGTableIs(name);
}

Belmo::Ptr<SGTableCuckooEntry> SGTableCuckooEntryIs(SGKey const& key) {
    return Belmo::make<SGTableCuckooEntry>(key);
}

}  // namespace NerioSwitchTable

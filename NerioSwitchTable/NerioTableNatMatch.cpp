#include "NerioSwitchTable/NerioTableNatMatch.h"

#include <bit>
#include <fmt/format.h>
#include <utility>

#include "Belmo/Assert.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/Address.h"
#include "NerioSwitchTable/NerioHitBitUtil.h"

namespace NerioSwitchTable {

using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableNatMatch");

constexpr TableIndex tableIndex = 47;
constexpr U32 rowsPerWay = 4096;
constexpr U32 ways = 3;
constexpr U8 rowBits = 12;
constexpr NerioSwitch::ProfileHwApi firstFilterMaskApi{10, 0};

constexpr NerioSwitchApi::PhysicalHashGeometry geometryOf(U32 tableId) {
    return {.tableId = tableId,
            .tableSize = rowsPerWay,
            .hashBits = rowBits,
            .numHashTables = ways,
            .rowSlots = 1,
            .entryWords = 7,
            .hitBitsSupported = 1,
            .placementFlag = 1};
}

/** Words 0 to 3 are data. Word 5 keeps in the shadow what a row's number implies. */
struct NatMatchRow {
    static constexpr U8 addressWord = 5;
    static constexpr BitField wholeAddress{"wholeAddress", 32 * addressWord, 32};
    static constexpr BitField address{"address", 0, 32 - rowBits};
    static constexpr BitField port{"port", 20, 16};
    static constexpr BitField type{"type", 36, 3};
    static constexpr BitField profile{"profile", 39, 6};
    static constexpr BitField filter{"filter", 45, 32};
    static constexpr NatMatchControl control{rowBits};
    BitField maskType;
    BitField useAcl;
    NatMatchResultFields result;

    constexpr explicit NatMatchRow(bool hasFilterMask)
        : NatMatchRow(static_cast<U16>(hasFilterMask ? 79 : 77), static_cast<U8>(hasFilterMask ? 2 : 0)) {}

    static NatMatchRow const& of(bool hasFilterMask);

    constexpr auto fields() const {
        return std::array{address,
                          port,
                          type,
                          profile,
                          filter,
                          maskType,
                          result.valid,
                          result.proto,
                          result.session,
                          useAcl,
                          result.parity,
                          result.trapToCpu,
                          result.l3LagIndex,
                          result.rewriteIndex,
                          control.row,
                          control.unused,
                          NatMatchControl::way,
                          NatMatchControl::readStrobe,
                          NatMatchControl::writeStrobe,
                          NatMatchControl::select,
                          wholeAddress};
    }

private:
    static constexpr BitField at(char const* name, U16 base, U16 offset, U8 width) {
        return {name, static_cast<U16>(base + offset), width};
    }
    constexpr NatMatchRow(U16 valid, U8 maskBits)
        : maskType{"maskType", 77, maskBits},
          useAcl(at("useAcl", valid, 20, 1)),
          result{.valid = at("valid", valid, 0, 1),
                 .proto = at("proto", valid, 1, 2),
                 .session = at("session", valid, 3, 17),
                 .parity = at("parity", valid, 21, 1),
                 .trapToCpu = at("trapToCpu", valid, 22, 1),
                 .rewriteIndex = at("rewriteIndex", valid, 23, 6),
                 .l3LagIndex = at("l3LagIndex", valid, 29, 6)} {}
};

constexpr NatMatchRow rowWithoutMask(false);
constexpr NatMatchRow rowWithMask(true);
static_assert(fieldsFit(rowWithoutMask.fields(), 6) && fieldsDisjoint(rowWithoutMask.fields()));
static_assert(fieldsFit(rowWithMask.fields(), 6) && fieldsDisjoint(rowWithMask.fields()));

NatMatchRow const& NatMatchRow::of(bool hasFilterMask) {
    return hasFilterMask ? rowWithMask : rowWithoutMask;
}

bool isFiltered(NatMatchKey const& key) {
    return !key.filterPfx().isNull();
}

struct HwFilter {
    U32 value = 0;
    U8 maskType = 0;
};

HwFilter hwFilterOf(NatMatchKey const& key, bool hasFilterMask) {
    HwFilter filter;
    if (hasFilterMask) {
        filter.value = encodeFilterPfx(key.filterPfx(), filter.maskType);
    } else if (isFiltered(key)) {
        filter.value = key.filterPfx().address().hostOrder();
    }
    return filter;
}

/** A filter of which a row tells no length: the zeros at the end of its address are taken for free bits. */
Lanvo::Prefix filterOfAddress(U32 address) {
    auto const length = static_cast<U8>(address == 0 ? 0 : 32 - std::countr_zero(address));
    return {Lanvo::IpAddr::fromHostOrder(address), length};
}

HashInput packed(NatMatchKey const& key, bool hasFilterMask) {
    HashInput input;
    U8* const bytes = input.bytes.data();
    auto const filter = hwFilterOf(key, hasFilterMask);
    bitStreamSet(bytes, 0, 32, keyAddress(key));
    bitStreamSet(bytes, 32, 16, keyPort(key));
    bitStreamSet(bytes, 48, 3, natTypeToHwVal(key.natType(), isFiltered(key)));
    bitStreamSet(bytes, 51, 6, key.ingressProfileId());
    bitStreamSet(bytes, 57, 32, filter.value);
    if (hasFilterMask) bitStreamSet(bytes, 89, 2, filter.maskType);
    input.bits = hasFilterMask ? 91 : 89;
    return input;
}

NerioSwitch::CrcHashes hashesOf(HashInput const& input) {
    return NerioSwitch::crc12Hashes(input.bytes.data(), input.bits);
}

NatMatchKey keyIn(NatMatchRow const& layout, U32 const* words, bool hasFilterMask) {
    auto const type = NatMatchRow::type.get(words);
    auto const filter = static_cast<U32>(NatMatchRow::filter.get(words));
    auto const maskType = static_cast<U8>(layout.maskType.get(words));
    auto const address = Lanvo::IpAddr::fromHostOrder(words[NatMatchRow::addressWord]);
    auto const port = static_cast<U16>(NatMatchRow::port.get(words));
    NatMatchKey key;
    key.natTypeIs(type & 3).ingressProfileIdIs(static_cast<U16>(NatMatchRow::profile.get(words)));
    if ((type & 4) != 0)
        key.filterPfxIs(hasFilterMask ? decodeFilterPfx(filter, maskType) : filterOfAddress(filter));
    if (key.natType() < NerioSwitch::NatType::destinationAddress) return key.sipIs(address).sportIs(port);
    return key.dipIs(address).dportIs(port);
}

}  // namespace

Belmo::String NatMatchResult::stringValue() const {
    return Sorn::_fmt(
        "valid=%d proto=%u natSessionId=%u useAcl=%d trapToCpu=%d l3LagIndex=%u rewriteIndex=%s", valid_,
        U32{proto_.value()}, natSessionId_.value(), useAcl_, trapToCpu_, U32{l3LagIndex_.value()},
        rewriteIndex_.text().c_str());
}

U16 keyPort(NatMatchKey const& key) {
    using NerioSwitch::NatType;
    auto const natType = key.natType();
    if (natType == NatType::sourceAddress || natType == NatType::destinationAddress) {
        BELMO_ASSERT(key.sport() == 0 && "srcPort should be unset for address-only NAT");
        BELMO_ASSERT(key.dport() == 0 && "dstPort should be unset for address-only NAT");
    }
    return natType == NatType::sourcePort ? key.sport() : key.dport();
}

U32 keyAddress(NatMatchKey const& key) {
    bool const isSource = key.natType() < NerioSwitch::NatType::destinationAddress;
    return (isSource ? key.sip() : key.dip()).hostOrder();
}

U8 natTypeToHwVal(NerioSwitch::NatType natType, bool filtered) {
    if (natType > NerioSwitch::NatType::destinationPort) BELMO_ASSERT(false);
    return static_cast<U8>(natType.value() | (filtered ? 4 : 0));
}

NatMatchTableCuckooEntry::NatMatchTableCuckooEntry(NatMatchKey const& key, bool hasFilterMask)
    : HashTableItem(key), hashes_(hashesOf(packed(key, hasFilterMask))), hasFilterMask_(hasFilterMask) {}

NatMatchTableCuckooEntry::~NatMatchTableCuckooEntry() = default;

U32 NatMatchTableCuckooEntry::getHash(U8 tableId) const {
    U32 const hash = hashes_.way(tableId);
    SORN_TRACE(handle, 9, "calculated hash for tableId {}: 0x{:x}", tableId, hash);
    return hash;
}

HashInput NatMatchTableCuckooEntry::hashInput() const {
    return packed(key(), hasFilterMask_);
}

Belmo::String NatMatchTableCuckooEntry::toStrep() const {
    return fmt::format("NatMatchTableCuckooEntry( {}, {} )", key().stringValue(), result().stringValue());
}

Belmo::String toStrep(Belmo::Ptr<NatMatchTableCuckooEntry const> const& item) {
    return item ? item->toStrep() : "NULL";
}

NatMatchPhysicalHashProperties::NatMatchPhysicalHashProperties(U32 tableId)
    : PhysicalHashProperties(geometryOf(tableId)) {}

NatMatchPhysicalHashProperties::~NatMatchPhysicalHashProperties() = default;

NatMatchTable::NatMatchTable(Belmo::String const& name, U8 pipeline)
    : NatHashTable(name, pipeline, true, handle) {}

NatMatchTable::~NatMatchTable() = default;

Belmo::Ptr<NatMatchTableCuckooEntry> NatMatchTable::createHashItem(NatMatchKey const& key) {
    auto cuckooEntry = hashItemIs(key, hasFilterMask());
    BELMO_ASSERT(cuckooEntry);
    return cuckooEntry;
}

Belmo::Ptr<NatMatchTableCuckooEntry> NatMatchTable::hashItemIs(NatMatchKey const& key, bool hasFilterMask) {
    if (hasFilterMask != this->hasFilterMask() && !cachedItem(key)) {
        auto const item = Belmo::make<NatMatchTableCuckooEntry>(key, hasFilterMask);
        item->tableIs(this);
        cachedItemIs(item);
    }
    auto item = cachedItemMade(key);
    BELMO_ASSERT(item->hasFilterMask() == hasFilterMask);
    return item;
}

U32 NatMatchTable::swTableId() const {
    return tableIndex + (pipeline() >> 1);
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> NatMatchTable::profileConvertorFactory() const {
    return Belmo::make<NatMatchConvertor>(pipeline());
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> NatMatchTable::hashBaseHelperFactory() const {
    return Belmo::make<NatMatchHelper>();
}

Belmo::Ptr<NatMatchTableCuckooEntry> NatMatchTable::newItem(NatMatchKey const& key) const {
    return Belmo::make<NatMatchTableCuckooEntry>(key, hasFilterMask());
}

bool NatMatchTable::hasFilterMask() const {
    return profile()->hwApi >= firstFilterMaskApi;
}

NatMatchHelper::NatMatchHelper() : NatHashHelper(tableIndex) {}

NatMatchHelper::~NatMatchHelper() = default;

Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> NatMatchHelper::doGetPhysTableProperties() const {
    return natMatchPhysicalHashPropertiesFactory(natTable().swTableId());
}

void NatMatchHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) {
    NatMatchRow::control.set(location, 0, reinterpret_cast<U32*>(buffer));
}

void NatMatchHelper::setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                                 Sorn::BytePtr buffer) {
    auto const& item = static_cast<NatMatchTableCuckooEntry const&>(*entry);
    auto const& key = item.key();
    bool const hasFilterMask = profile()->hwApi >= firstFilterMaskApi;
    auto const& layout = NatMatchRow::of(hasFilterMask);
    auto const filter = hwFilterOf(key, hasFilterMask);
    U32 const address = keyAddress(key);
    auto* const words = reinterpret_cast<U32*>(buffer);
    NatMatchRow::address.set(words, address >> rowBits);
    NatMatchRow::port.set(words, keyPort(key));
    NatMatchRow::type.set(words, natTypeToHwVal(key.natType(), isFiltered(key)));
    NatMatchRow::profile.set(words, key.ingressProfileId());
    NatMatchRow::filter.set(words, filter.value);
    layout.maskType.set(words, filter.maskType);
    layout.useAcl.set(words, item.result().useAcl());
    layout.result.encode(item.result(), handle, words);
    layout.result.setParity(words);
    setStaticBuffer(location, buffer);
    words[NatMatchRow::addressWord] = address;
}

std::vector<NerioSwitchApi::RowLayout> NatMatchHelper::rowLayouts() const {
    auto const& layout = NatMatchRow::of(profile()->hwApi >= firstFilterMaskApi);
    return {NerioSwitchApi::rowLayout(geometryOf(0).entryWords, NerioSwitchApi::rowFields(layout.fields()))};
}

NatMatchHelper::Ptr NatMatchHelper::decodeHwEntry(HwIndex index) {
    auto const words = storedWords(index);
    bool const hasFilterMask = profile()->hwApi >= firstFilterMaskApi;
    auto const& layout = NatMatchRow::of(hasFilterMask);
    auto result = layout.result.decode<NatMatchResult>(words.data());
    result.useAclIs(layout.useAcl.get(words.data()) != 0);
    auto const item = itemOf(keyIn(layout, words.data(), hasFilterMask), result);
    U32 const storedAddress = words[NatMatchRow::addressWord] >> rowBits;
    checkItem(*item, index, words, storedAddress == NatMatchRow::address.get(words.data()));
    return item;
}

NatMatchConvertor::NatMatchConvertor(U8 pipeline) : NatMatchBaseConvertor(pipeline, tableIndex) {}

NatMatchConvertor::~NatMatchConvertor() = default;

void NatMatchConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    createMatchTables(state, pipeline() >> 1);
}

/** The rows of its ways have the bits of the first ways of the longest routes, in the reads behind those. */
void NatMatchConvertor::registerHitBits(NerioSwitchApi::HitBitReadInfo& info) const {
    constexpr U32 firstRead = 2048;
    constexpr U32 bitsBetweenWays = 9;
    for (U32 way = 0; way < ways; ++way)
        hitBitRowsAre(info, bitsBetweenWays * way, rowsPerWay * way, rowsPerWay, firstRead);
}

Belmo::Ptr<NatMatchTable> NatMatchTableIs(Belmo::String const& name, U8 pipeline) {
    return Belmo::make<NatMatchTable>(name, pipeline);
}

Belmo::Ptr<NatMatchTable> natMatchTableFactory(Belmo::String const& name, U8 pipeline) {
    return NatMatchTableIs(name, pipeline);
}

Belmo::Ptr<NatMatchPhysicalHashProperties> natMatchPhysicalHashPropertiesFactory(U32 tableId) {
    return Belmo::make<NatMatchPhysicalHashProperties>(tableId);
}

}  // namespace NerioSwitchTable

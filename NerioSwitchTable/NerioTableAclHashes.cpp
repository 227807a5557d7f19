#include "NerioSwitchTable/NerioTableAclHashes.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <fmt/ostream.h>

#include "Belmo/Assert.h"
#include "Sorn/Format.h"

namespace NerioSwitchTable {

using NerioSwitch::AclHashKey;
using NerioSwitch::TableLayoutEnum;
using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableAclHashes");

constexpr U32 firstTableIndex = 69;
constexpr U32 tablesPerPipeline = 7;
constexpr U32 defaultHashBits = 11;
constexpr U32 allBits = 0xFFFFFFFF;

TableIndex tableIndexOf(AclHashTable const& table) {
    return TableIndexInstance(firstTableIndex + table.physTableIdx());
}

/** Width of a row's number, by the profile's row count taken down to a power of two; none without rows. */
std::optional<U32> hashBitsOf(NerioSwitch::ProfileInfo const& profile) {
    auto const* const layout = profile.getHardwareTableLayout(TableLayoutEnum::tableLayoutAcl);
    if (layout == nullptr) return defaultHashBits;
    if (layout->size == 0) return std::nullopt;
    return static_cast<U32>(std::bit_width(layout->size) - 1);
}

NerioSwitch::CrcHashes hashesOf(AclPackedKey const& key, U8 bits, bool singleAclPipeMode) {
    auto const* const bytes = reinterpret_cast<U8 const*>(key.data());
    return singleAclPipeMode ? NerioSwitch::crc12Hashes(bytes, bits) : NerioSwitch::crc11Hashes(bytes, bits);
}

NerioSwitchApi::PhysicalHashGeometry geometry(U32 aclTableId, std::optional<U32> hashBits) {
    return {.tableId = aclTableId,
            .tableSize = hashBits ? U32{1} << *hashBits : 0,
            .hashBits = hashBits.value_or(0),
            .numHashTables = 2,
            .rowSlots = 1,
            .entryWords = AclRowLayout::words,
            .hitBitsSupported = 0,
            .placementFlag = 1};
}

}  // namespace

AclHashTableCuckooEntry::AclHashTableCuckooEntry(AclHashKey const& key, bool singleAclPipeMode,
                                                 bool hasFilterMask)
    : HashTableItem(key), singleAclPipeMode_(singleAclPipeMode), hasFilterMask_(hasFilterMask) {
    auto const& layout = aclKeyLayout(key.combination(), hasFilterMask);
    keyBits_ = layout.length;
    packedKey_ = layout.pack(key);
    hashes_ = hashesOf(packedKey_, keyBits_, singleAclPipeMode);
}

AclHashTableCuckooEntry::~AclHashTableCuckooEntry() = default;

U8 AclHashTableCuckooEntry::copyKeyToBuffer(U8* buffer, U8 bufferSize) const {
    BELMO_ASSERT_TEXT(bufferSize >= 14, "bufSize >= 14");
    std::memset(buffer, 0, bufferSize);
    std::memcpy(buffer, packedKey_.data(), sizeof packedKey_);
    return keyBits_;
}

HashInput AclHashTableCuckooEntry::hashInput() const {
    HashInput input;
    input.bits = copyKeyToBuffer(input.bytes.data(), static_cast<U8>(input.bytes.size()));
    return input;
}

Belmo::String AclHashTableCuckooEntry::toStrep() const {
    return fmt::format("AclHashTableCuckooEntry( {}, {} )", Sorn::text(key()), Sorn::text(result()));
}

AclPhysicalHashProperties::AclPhysicalHashProperties(U32 aclTableId, std::optional<U32> hashBits)
    : PhysicalHashProperties(geometry(aclTableId, hashBits)) {}

AclPhysicalHashProperties::~AclPhysicalHashProperties() = default;

AclHashTable::AclHashTable(Belmo::String const& name, U8 pipeline, U8 physTableIdx)
    : HashTable<AclHashTableCuckooEntry, AclHashEntryStatus>(name),
      pipeline_(pipeline),
      physTableIdx_(physTableIdx) {
    statusSupportedIs(true);
    hitBitsSupportedIs(false);
    hwTablesDuplicateIs(false);
}

AclHashTable::~AclHashTable() = default;

U32 AclHashTable::aclTableId() const {
    return pipeline_ * tablesPerPipeline + physTableIdx_ + firstTableIndex;
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> AclHashTable::profileConvertorFactory() const {
    return aclHashConvertorFactory();
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> AclHashTable::hashBaseHelperFactory() const {
    return aclHashHelperFactory(tableIndexOf(*this));
}

bool AclHashTable::hwInconsistentEntryFromHashItem(PtrConst const& /*item*/) const {
    return false;
}

bool AclHashTable::hwInconsistentEntryDelFromHashItem(PtrConst const& /*item*/) {
    return true;
}

Belmo::Ptr<AclHashTableCuckooEntry> AclHashTable::newItem(AclHashKey const& key) const {
    auto const& format = static_cast<AclHashHelper const&>(*helper()).format();
    return Belmo::make<AclHashTableCuckooEntry>(key, format.singleAclPipeMode, format.hasFilterMask());
}

Sorn::TraceHandle const& AclHashTable::trace() const {
    return handle;
}

AclHashHelper::AclHashHelper(TableIndex tableIdx) : NerioTableHashHelper(tableIdx) {}

AclHashHelper::~AclHashHelper() = default;

void AclHashHelper::doInit() {
    NerioTableHashHelper::doInit();
    layouts_.emplace(aclRowFormat(*profile()));
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> AclHashHelper::doGetPhysTableProperties() const {
    return Belmo::make<AclPhysicalHashProperties>(aclTable().aclTableId(), hashBitsOf(*profile()));
}

void AclHashHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) {
    BELMO_ASSERT(swTable());
    layouts_->setControl(location, aclTable().physTableIdx(), aclTable().pipeline(),
                         reinterpret_cast<U32*>(buffer));
}

void AclHashHelper::setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                                Sorn::BytePtr buffer) {
    auto const& item = static_cast<AclHashTableCuckooEntry const&>(*entry);
    auto* const words = reinterpret_cast<U32*>(buffer);
    auto const& layout = layouts_->ofCombination(item.key().combination());
    if (layout.key.isEmpty(item.key())) {
        std::fill_n(words, AclRowLayout::words, 0);
    } else {
        SORN_TRACE(handle, 8, "setHwBuffer {}: {}", fmt::streamed(location), item.toStrep());
        U32 const verMajor = format().verMajor;
        BELMO_ASSERT(verMajor >= 2);
        BELMO_ASSERT_TEXT(item.singleAclPipeMode() == format().singleAclPipeMode,
                          "entry->singleAclPipeMode() == singleAclPipeMode");
        layout.set(item.packedKey(), item.result(), words);
    }
    setStaticBuffer(location, buffer);
}

/** A profile may speak of more rows than the hash can name; control words cannot name them either. */
bool AclHashHelper::reachable(Dovra::Cuckoo::CuckooLocation const& location) const {
    return location.row < U32{1} << format().rowBits();
}

AclHashHelper::Ptr AclHashHelper::nullHashEntry() {
    return aclTable().createHashEntry(AclHashKey(), false);
}

std::vector<NerioSwitchApi::RowLayout> AclHashHelper::rowLayouts() const {
    return {NerioSwitchApi::rowLayout(AclRowLayout::words, layouts_->rowFields(aclTable().physTableIdx()))};
}

AclHashHelper::Ptr AclHashHelper::decodeHwEntry(HwIndex index) {
    SORN_TRACE(handle, 9, "decodeHwEntry {}", index);
    auto const& layout = layouts_->ofPhysTable(aclTable().physTableIdx());
    auto const decoded = layout.decode(storedWords(index).data());
    if (!decoded) return nullHashEntry();
    auto const item = aclTable().createHashEntry(decoded->key, true);
    item->resultIs(decoded->result);
    item->validIs(true);
    SORN_TRACE(handle, 7, "Decoded Entry: {}", item->toStrep());
    return item;
}

AclHashConvertor::AclHashConvertor() {
    strobeBitsAre(17, 18);
    hwStaticWordIs(AclRowLayout::unusedWord, allBits);
}

AclHashConvertor::~AclHashConvertor() = default;

void AclHashConvertor::handleInitialized() {
    hwStaticWordIs(AclRowLayout::unusedWord, allBits);
}

void AclHashConvertor::doInitTableStats() {
    BELMO_ASSERT(capacitySupported());
    BELMO_ASSERT(swTables() == 1);
    TableGauge::TableKey const key(helper(0)->name(), Sorn::_fmt("Pipe%d", aclTable().pipeline()),
                                   aclTable().name());
    BELMO_ASSERT(key.verifyTableKey());
    initEntryCounter(key, tableSize() * numHashTables(), 0);
}

void AclHashConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    U32 const verMajor = profile()->hwApi.majorVersion();
    BELMO_ASSERT(verMajor >= 2);
    hwStaticWordIs(AclRowLayout::controlWord, allBits);
    BELMO_ASSERT(swTables() == 1);
    U32 const processor =
        profile()->pipeToProcessorId(aclTable().pipeline(), TableLayoutEnum::tableLayoutAcl);
    auto const registers =
        NerioSwitchApi::addressesOf(Sorn::_fmt("ingress/processor_acl[%u]/", processor),
                                    {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"});
    createHashHwTable(state, tableIndexOf(aclTable()), aclTable().pipeline(), registers);
}

Belmo::Ptr<AclHashTable> AclHashTableIs(Belmo::String const& name, U8 pipeline, U8 physTableIdx) {
    return Belmo::make<AclHashTable>(name, pipeline, physTableIdx);
}

Belmo::Ptr<AclHashTable> aclHashTableFactory(Belmo::String const& name, U8 pipeline, U8 physTableIdx) {
    return AclHashTableIs(name, pipeline, physTableIdx);
}

Belmo::Ptr<AclHashConvertor> aclHashConvertorFactory() {
    return Belmo::make<AclHashConvertor>();
}

Belmo::Ptr<AclHashHelper> aclHashHelperFactory(TableIndex tableIdx) {
    return Belmo::make<AclHashHelper>(tableIdx);
}

}  // namespace NerioSwitchTable

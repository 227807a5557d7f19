#include "NerioSwitchTable/NerioTableNatRewrite.h"

#include <fmt/format.h>

#include "Belmo/Assert.h"
#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

namespace NerioSwitchTable {

using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableNatRewrite");

constexpr TableIndex tableIndex = 9;
constexpr U8 rowBits = 10;
constexpr U32 sessionMask = 0x1FFFF;
constexpr U32 compareMask = 0x7FFF;

constexpr NerioSwitchApi::PhysicalHashGeometry geometryOf(U32 tableId) {
    return {.tableId = tableId,
            .tableSize = 1024,
            .hashBits = rowBits,
            .numHashTables = 4,
            .rowSlots = 1,
            .entryWords = 5,
            .hitBitsSupported = 0,
            .placementFlag = 1};
}

/** The part of the key that rows hold. Which of the fields in the middle there are is told by the form. */
struct NatRewriteCompare {
    static constexpr BitField session{"session", 0, 17 - rowBits};
    static constexpr BitField profile{"profile", 7, 6};
    static constexpr BitField secondTnat{"secondTnat", 13, 1};
    static constexpr BitField vlanGroup{"vlanGroup", 7, 4};
    static constexpr BitField member{"member", 11, 3};
    static constexpr BitField oddPort{"oddPort", 14, 1};
    static constexpr std::array unicastFields{session, profile, secondTnat, oddPort};
    static constexpr std::array multicastFields{session, vlanGroup, member, oddPort};
};

/** Words 0 to 2 are data, word 3 the control word. Word 4 keeps in the shadow what a row does not say. */
struct NatRewriteRow {
    static constexpr U8 dataWords = 3;
    static constexpr U8 controlWord = 3;
    static constexpr U16 control = 32 * controlWord;
    static constexpr BitField compare{"compare", 0, 15};
    static constexpr BitField valid{"valid", 15, 1};
    static constexpr BitField newPort{"newPort", 16, 16};
    static constexpr BitField checksum{"checksum", 32, 16};
    static constexpr BitField newIp{"newIp", 48, 32};
    static constexpr BitField parity{"parity", 80, 1};
    static constexpr BitField row{"row", control, rowBits};
    static constexpr BitField way{"way", control + 10, 2};
    static constexpr BitField readStrobe{"readStrobe", control + 12, 1};
    static constexpr BitField writeStrobe{"writeStrobe", control + 13, 1};
    static constexpr BitField session{"wholeSession", 128, 17};
    static constexpr BitField isUnicast{"isUnicast", 145, 1};
    static constexpr std::array fieldsBehindKey{valid, newPort,    checksum,    newIp,   parity,   row,
                                                way,   readStrobe, writeStrobe, session, isUnicast};
    static_assert(valid.first == compare.end());
    /** Written with the control word: the rest of it, and a bit of what stands behind. */
    static constexpr BitField behindControl{"behindControl", control + 14, 19};
};
static_assert(fieldsFit(NatRewriteRow::fieldsBehindKey, geometryOf(0).entryWords) &&
              fieldsDisjoint(NatRewriteRow::fieldsBehindKey) &&
              fieldsDisjoint(NatRewriteCompare::unicastFields) &&
              fieldsDisjoint(NatRewriteCompare::multicastFields));

HashInput packed(NatRewriteKey const& key) {
    HashInput input;
    U8* const bytes = input.bytes.data();
    bitStreamSet(bytes, 0, 17, key.natSessionId().value());
    if (key.isUnicast()) {
        bitStreamSet(bytes, 17, 6, key.natProfileId().value());
        bitStreamSet(bytes, 23, 1, key.secondTnat());
    } else {
        bitStreamSet(bytes, 17, 4, key.vlanGroupId().value());
        bitStreamSet(bytes, 21, 3, key.vlanGroupMemberIdx().value());
    }
    bitStreamSet(bytes, 24, 1, key.oddPort());
    input.bits = 25;
    return input;
}

NerioSwitch::CrcHashes hashesOf(HashInput const& input) {
    return NerioSwitch::crc10Hashes(input.bytes.data(), input.bits);
}

NatRewriteKey keyIn(U32 const* words) {
    using Compare = NatRewriteCompare;
    NatRewriteKey key;
    key.isUnicastIs(NatRewriteRow::isUnicast.get(words) != 0)
        .natSessionIdIs(NatRewriteRow::session.get(words))
        .oddPortIs(Compare::oddPort.get(words) != 0);
    if (key.isUnicast())
        return key.natProfileIdIs(Compare::profile.get(words))
            .secondTnatIs(Compare::secondTnat.get(words) != 0);
    return key.vlanGroupIdIs(Compare::vlanGroup.get(words)).vlanGroupMemberIdxIs(Compare::member.get(words));
}

NatRewriteResult resultIn(U32 const* words) {
    return NatRewriteResult()
        .validIs(NatRewriteRow::valid.get(words) != 0)
        .newIpIs(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(NatRewriteRow::newIp.get(words))))
        .newPortIs(static_cast<U16>(NatRewriteRow::newPort.get(words)))
        .checksumCorrectionIs(static_cast<U16>(NatRewriteRow::checksum.get(words)));
}

/** The item of a row where there is no table to keep it. */
Belmo::Ptr<NatRewriteTableCuckooEntry> loneItemOf(NatRewriteKey const& key, NatRewriteResult const& result) {
    auto item = Belmo::make<NatRewriteTableCuckooEntry>(key);
    item->resultIs(result);
    item->validIs(result.valid());
    return item;
}

}  // namespace

Belmo::String NatRewriteKey::stringValue() const {
    if (isUnicast_) {
        return Sorn::_fmt("natSessionId=%u natEgressProfileId=%u oddPort=%d secondTnat=%d",
                          natSessionId_.value(), U32{natProfileId_.value()}, oddPort_, secondTnat_);
    }
    return Sorn::_fmt("natSessionId=%u vlanGroupId=%u memberIdx=%u oddPort=%d", natSessionId_.value(),
                      U32{vlanGroupId_.value()}, U32{vlanGroupMemberIdx_.value()}, oddPort_);
}

Belmo::String NatRewriteResult::stringValue() const {
    return Sorn::_fmt("valid=%d newIp=%s newPort=%u checksumCorrection=%u", valid_, newIp_.text().c_str(),
                      U32{newPort_}, U32{checksumCorrection_});
}

NatRewriteTableCuckooEntry::NatRewriteTableCuckooEntry(NatRewriteKey const& key)
    : HashTableItem(key), hashes_(hashesOf(packed(key))) {}

NatRewriteTableCuckooEntry::~NatRewriteTableCuckooEntry() = default;

U32 NatRewriteTableCuckooEntry::getHash(U8 tableId) const {
    U32 const hash = hashes_.way(tableId);
    SORN_TRACE(handle, 9, "calculated hash for tableId {}: 0x{:x}", tableId, hash);
    return hash;
}

HashInput NatRewriteTableCuckooEntry::hashInput() const {
    return packed(key());
}

Belmo::String NatRewriteTableCuckooEntry::toStrep() const {
    return fmt::format("NatRewriteTableCuckooEntry( {}, {} )", key().stringValue(), result().stringValue());
}

U16 NatRewriteTableCuckooEntry::hwCompareEncoding() const {
    using Compare = NatRewriteCompare;
    U32 encoding = (key().natSessionId().value() & sessionMask) >> rowBits;
    if (key().isUnicast()) {
        encoding |= U32{key().natProfileId().value()} << Compare::profile.first;
        encoding |= U32{key().secondTnat()} << Compare::secondTnat.first;
    } else {
        encoding |= U32{key().vlanGroupId().value()} << Compare::vlanGroup.first;
        encoding |= U32{key().vlanGroupMemberIdx().value()} << Compare::member.first;
    }
    encoding |= U32{key().oddPort()} << Compare::oddPort.first;
    return static_cast<U16>(encoding & compareMask);
}

Belmo::String toStrep(Belmo::Ptr<NatRewriteTableCuckooEntry const> const& item) {
    return item ? item->toStrep() : "NULL";
}

NatRewritePhysicalHashProperties::NatRewritePhysicalHashProperties(U32 tableId)
    : PhysicalHashProperties(geometryOf(tableId)) {}

NatRewritePhysicalHashProperties::~NatRewritePhysicalHashProperties() = default;

NatRewriteTable::NatRewriteTable(Belmo::String const& name, U8 pipeline)
    : NatHashTable(name, pipeline, false, handle) {}

NatRewriteTable::~NatRewriteTable() = default;

Belmo::Ptr<NatRewriteTableCuckooEntry> NatRewriteTable::createHashItem(NatRewriteKey const& key) {
    SORN_TRACE(handle, 8, "createHashItem {} egressPipe={}", key.stringValue(), pipeline());
    auto cuckooEntry = hashItemIs(key);
    BELMO_ASSERT(cuckooEntry);
    return cuckooEntry;
}

U32 NatRewriteTable::swTableId() const {
    return tableIndex + pipeline();
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> NatRewriteTable::profileConvertorFactory() const {
    return Belmo::make<NatRewriteConvertor>(pipeline());
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> NatRewriteTable::hashBaseHelperFactory() const {
    return Belmo::make<NatRewriteHelper>();
}

Belmo::Ptr<NatRewriteTableCuckooEntry> NatRewriteTable::newItem(NatRewriteKey const& key) const {
    return Belmo::make<NatRewriteTableCuckooEntry>(key);
}

NatRewriteHelper::NatRewriteHelper() : NatHashHelper(tableIndex) {}

NatRewriteHelper::~NatRewriteHelper() = default;

Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> NatRewriteHelper::doGetPhysTableProperties() const {
    return natRewritePhysicalHashPropertiesFactory(natTable().swTableId());
}

void NatRewriteHelper::setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) {
    auto* const words = reinterpret_cast<U32*>(buffer);
    NatRewriteRow::row.set(words, location.row);
    NatRewriteRow::way.set(words, location.table);
    NatRewriteRow::readStrobe.set(words, 0);
    NatRewriteRow::writeStrobe.set(words, 1);
    NatRewriteRow::behindControl.set(words, 0);
}

void NatRewriteHelper::setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                                   Sorn::BytePtr buffer) {
    auto const& item = static_cast<NatRewriteTableCuckooEntry const&>(*entry);
    auto const& result = item.result();
    auto* const words = reinterpret_cast<U32*>(buffer);
    NatRewriteRow::compare.set(words, item.hwCompareEncoding());
    NatRewriteRow::valid.set(words, result.valid());
    NatRewriteRow::newPort.set(words, result.newPort());
    NatRewriteRow::checksum.set(words, result.checksumCorrection());
    NatRewriteRow::newIp.set(words, result.newIp().hostOrder());
    NatRewriteRow::parity.set(words, 0);
    NatRewriteRow::parity.set(words, NerioSwitch::parityU32Array(words, NatRewriteRow::dataWords));
    setStaticBuffer(location, buffer);
    NatRewriteRow::session.set(words, item.key().natSessionId().value());
    NatRewriteRow::isUnicast.set(words, item.key().isUnicast());
    SORN_TRACE(handle, 9, "setHwBuffer 128:144={:#x} 145:145={}", NatRewriteRow::session.get(words),
               NatRewriteRow::isUnicast.get(words));
}

NatRewriteHelper::Ptr NatRewriteHelper::nullHashEntry() {
    return natTable().createHashEntry(NatRewriteKey().isUnicastIs(true), false);
}

std::vector<NerioSwitchApi::RowLayout> NatRewriteHelper::rowLayouts() const {
    constexpr U32 words = geometryOf(0).entryWords;
    using Compare = NatRewriteCompare;
    auto const isUnicast = [](std::span<U32 const> row) {
        return NatRewriteRow::isUnicast.get(row.data()) != 0;
    };
    return {NerioSwitchApi::rowLayout(
                words, NerioSwitchApi::rowFields(Compare::unicastFields, NatRewriteRow::fieldsBehindKey),
                "unicast", isUnicast),
            NerioSwitchApi::rowLayout(
                words, NerioSwitchApi::rowFields(Compare::multicastFields, NatRewriteRow::fieldsBehindKey),
                "multicast")};
}

NatRewriteHelper::Ptr NatRewriteHelper::decodeHwEntry(HwIndex index) {
    auto const words = storedWords(index);
    auto const key = keyIn(words.data());
    auto const result = resultIn(words.data());
    if (swTable() == nullptr) return loneItemOf(key, result);
    auto const item = itemOf(key, result);
    auto const stashedSession = NatRewriteRow::session.get(words.data());
    checkItem(*item, index, words, stashedSession >> rowBits == NatRewriteCompare::session.get(words.data()));
    return item;
}

NatRewriteConvertor::NatRewriteConvertor(U8 pipeline)
    : NatHashConvertor(pipeline, tableIndex, NatRewriteRow::controlWord, "EgressPipe") {
    strobeBitsAre(12, 13);
}

NatRewriteConvertor::~NatRewriteConvertor() = default;

void NatRewriteConvertor::doCreateHwTables(NerioSwitchApi::TableState state) {
    SORN_TRACE(handle, 8, "doCreateHwTables tableState: {}", static_cast<U32>(state));
    auto const registers = NerioSwitchApi::addressesOf(
        Sorn::_fmt("egress/processor[%u]/", U32{pipeline()}),
        {"nat_lum_hash_data0", "nat_lum_hash_data1", "nat_lum_hash_data2", "nat_lum_hash_ctl"});
    createHashHwTable(state, tableIndex, pipeline(), registers);
}

Belmo::Ptr<NatRewriteTable> NatRewriteTableIs(Belmo::String const& name, U8 pipeline) {
    return Belmo::make<NatRewriteTable>(name, pipeline);
}

Belmo::Ptr<NatRewriteTable> natRewriteTableFactory(Belmo::String const& name, U8 pipeline) {
    return NatRewriteTableIs(name, pipeline);
}

Belmo::Ptr<NatRewritePhysicalHashProperties> natRewritePhysicalHashPropertiesFactory(U32 tableId) {
    return Belmo::make<NatRewritePhysicalHashProperties>(tableId);
}

}  // namespace NerioSwitchTable

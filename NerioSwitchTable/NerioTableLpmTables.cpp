#include "NerioSwitchTable/NerioTableLpmTables.h"

#include <bit>
#include <fmt/format.h>

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

using NerioSwitch::LpmKey;

namespace {

Sorn::TraceHandle handle("NerioTableLpm");

constexpr NerioSwitchApi::PhysicalHashGeometry geometryOf(LpmStage const& stage) {
    return {.tableId = stage.tableIndex,
            .tableSize = stage.rowsPerWay(),
            .hashBits = stage.crcLength,
            .numHashTables = LpmStage::ways,
            .rowSlots = 1,
            .entryWords = LpmRowLayout::words,
            .hitBitsSupported = 1,
            .placementFlag = 1};
}

}  // namespace

template <U8 number>
LpmStageCuckooEntry<number>::LpmStageCuckooEntry(LpmKey const& key)
    : LpmBaseTableCuckooEntry(lpmStage(number), key) {}

template <U8 number>
LpmStageCuckooEntry<number>::~LpmStageCuckooEntry() = default;

template <U8 number>
LpmStagePhysicalHashProperties<number>::LpmStagePhysicalHashProperties()
    : PhysicalHashProperties(geometryOf(lpmStage(number))) {}

template <U8 number>
LpmStagePhysicalHashProperties<number>::~LpmStagePhysicalHashProperties() = default;

template <U8 number>
LpmStageHelper<number>::LpmStageHelper(U8 numVrfBits) : LpmBaseHelper(lpmStage(number), numVrfBits) {}

template <U8 number>
LpmStageHelper<number>::~LpmStageHelper() = default;

template <U8 number>
Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> LpmStageHelper<number>::doGetPhysTableProperties() const {
    return Belmo::make<LpmStagePhysicalHashProperties<number>>();
}

template <U8 number>
LpmStageConvertor<number>::LpmStageConvertor() {
    hitBitOffsetIs(lpmStage(number).hashTableId);
}

template <U8 number>
LpmStageConvertor<number>::~LpmStageConvertor() = default;

template <U8 number>
LpmStageTable<number>::LpmStageTable(Belmo::String const& name) : LpmBaseTable(name) {
    prefixBaseLenIs(lpmStage(number).prefixBaseLen);
}

template <U8 number>
LpmStageTable<number>::~LpmStageTable() = default;

template <U8 number>
U32 LpmStageTable<number>::swTableId() const {
    return lpmStage(number).tableIndex;
}

template <U8 number>
Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> LpmStageTable<number>::profileConvertorFactory()
    const {
    return Belmo::make<LpmStageConvertor<number>>();
}

template <U8 number>
Belmo::Ptr<NerioSwitchApi::HashBaseHelper> LpmStageTable<number>::hashBaseHelperFactory() const {
    U32 const numVrfs = profile()->numVrfs;
    BELMO_ASSERT_TEXT(numVrfs == 4 || numVrfs == 8 || numVrfs == 32,
                      fmt::format("Unsupported number of VRFs {}", numVrfs).c_str());
    return Belmo::make<LpmStageHelper<number>>(static_cast<U8>(std::bit_width(numVrfs) - 1));
}

template <U8 number>
Belmo::Ptr<LpmBaseTableCuckooEntry> LpmStageTable<number>::createHashItem(LpmKey const& key, bool cached) {
    SORN_TRACE(handle, 8, "createHashItem {} cached: {}", Sorn::text(key), cached);
    if (cached) return hashItemIs(key);
    return newItem(key);
}

template <U8 number>
Belmo::Ptr<LpmStageCuckooEntry<number>> LpmStageTable<number>::hashItem(LpmKey const& key) const {
    return Belmo::ptrCast<LpmStageCuckooEntry<number>>(cachedItem(key));
}

template <U8 number>
Belmo::Ptr<LpmStageCuckooEntry<number>> LpmStageTable<number>::hashItemIs(LpmKey const& key) {
    return Belmo::ptrCast<LpmStageCuckooEntry<number>>(cachedItemMade(key));
}

template <U8 number>
Belmo::Ptr<LpmBaseTableCuckooEntry> LpmStageTable<number>::newItem(LpmKey const& key) const {
    return Belmo::make<LpmStageCuckooEntry<number>>(key);
}

template <U8 number>
char const* LpmStageTable<number>::className() const {
    return lpmStage(number).tableName;
}

#define NERIO_LPM_STAGE(number)                                                                    \
    template class LpmStageCuckooEntry<number>;                                                    \
    template class LpmStagePhysicalHashProperties<number>;                                         \
    template class LpmStageHelper<number>;                                                         \
    template class LpmStageConvertor<number>;                                                      \
    template class LpmStageTable<number>;                                                          \
    Belmo::Ptr<Lpm##number##Table> Lpm##number##TableIs(Belmo::String const& name) {               \
        return Belmo::make<Lpm##number##Table>(name);                                              \
    }                                                                                              \
    Belmo::Ptr<Lpm##number##Table> lpm##number##TableFactory(Belmo::String const& name) {          \
        return Lpm##number##TableIs(name);                                                         \
    }                                                                                              \
    Belmo::Ptr<Lpm##number##Convertor> Lpm##number##ConvertorIs() {                                \
        return Belmo::make<Lpm##number##Convertor>();                                              \
    }                                                                                              \
    Belmo::Ptr<Lpm##number##Helper> Lpm##number##HelperIs(U8 numVrfBits) {                         \
        return Belmo::make<Lpm##number##Helper>(numVrfBits);                                       \
    }                                                                                              \
    Belmo::Ptr<Lpm##number##TableCuckooEntry> Lpm##number##TableCuckooEntryIs(LpmKey const& key) { \
        return Belmo::make<Lpm##number##TableCuckooEntry>(key);                                    \
    }                                                                                              \
    Belmo::Ptr<Lpm##number##PhysicalHashProperties> Lpm##number##PhysicalHashPropertiesIs() {      \
        return Belmo::make<Lpm##number##PhysicalHashProperties>();                                 \
    }                                                                                              \
    static_assert(true)

NERIO_LPM_STAGE(14);
NERIO_LPM_STAGE(17);
NERIO_LPM_STAGE(20);
NERIO_LPM_STAGE(23);
NERIO_LPM_STAGE(26);
NERIO_LPM_STAGE(29);
NERIO_LPM_STAGE(32);

}  // namespace NerioSwitchTable

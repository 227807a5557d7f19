#pragma once

#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTableLpmBase.h"

/*
 * The hashing stages of the route look-up, by the longest route that each serves:
 *
 *   stage    14         17         20         23         26         29         32
 *   routes   12 to 14   15 to 17   18 to 20   21 to 23   24 to 26   27 to 29   30 to 32
 *
 * All that a stage adds to the family is constants, which `lpmStages` lists.
 */
namespace NerioSwitchTable {

/** A key of a stage with its cells, on its way to hardware or back. */
template <U8 number>
class NERIO_SWITCH_TABLE_EXPORT LpmStageCuckooEntry final : public LpmBaseTableCuckooEntry {
public:
    explicit LpmStageCuckooEntry(NerioSwitch::LpmKey const& key);
    ~LpmStageCuckooEntry() override;
};

/** Geometry of a stage's rows. */
template <U8 number>
class NERIO_SWITCH_TABLE_EXPORT LpmStagePhysicalHashProperties final
    : public NerioSwitchApi::PhysicalHashProperties {
public:
    LpmStagePhysicalHashProperties();
    ~LpmStagePhysicalHashProperties() override;
};

/** Lays a stage's entries out for their rows, and reads rows back. */
template <U8 number>
class NERIO_SWITCH_TABLE_EXPORT LpmStageHelper final : public LpmBaseHelper {
public:
    explicit LpmStageHelper(U8 numVrfBits);
    ~LpmStageHelper() override;

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override;
};

/** Owns the rows of a stage, in each L3 processor. */
template <U8 number>
class NERIO_SWITCH_TABLE_EXPORT LpmStageConvertor final : public LpmBaseConvertor {
public:
    LpmStageConvertor();
    ~LpmStageConvertor() override;
};

/** Per VRF and prefix of the stage's key length, the four cells behind it. */
template <U8 number>
class NERIO_SWITCH_TABLE_EXPORT LpmStageTable final : public LpmBaseTable {
public:
    explicit LpmStageTable(Belmo::String const& name);
    ~LpmStageTable() override;

    U32 swTableId() const override;
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override;
    /** A profile with another number of VRFs than 4, 8 and 32 is a programming error. */
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override;
    Belmo::Ptr<LpmBaseTableCuckooEntry> createHashItem(NerioSwitch::LpmKey const& key, bool cached) override;
    /** The cached item of a key; null if there is none. */
    Belmo::Ptr<LpmStageCuckooEntry<number>> hashItem(NerioSwitch::LpmKey const& key) const;
    /** The same, made and published if it is missing. */
    Belmo::Ptr<LpmStageCuckooEntry<number>> hashItemIs(NerioSwitch::LpmKey const& key);

protected:
    Belmo::Ptr<LpmBaseTableCuckooEntry> newItem(NerioSwitch::LpmKey const& key) const override;
    char const* className() const override;
};

#define NERIO_LPM_STAGE(number)                                                                          \
    using Lpm##number##Table = LpmStageTable<number>;                                                    \
    using Lpm##number##Convertor = LpmStageConvertor<number>;                                            \
    using Lpm##number##Helper = LpmStageHelper<number>;                                                  \
    using Lpm##number##TableCuckooEntry = LpmStageCuckooEntry<number>;                                   \
    using Lpm##number##PhysicalHashProperties = LpmStagePhysicalHashProperties<number>;                  \
    NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm##number##Table> Lpm##number##TableIs(                       \
        Belmo::String const& name);                                                                      \
    NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm##number##Table> lpm##number##TableFactory(                  \
        Belmo::String const& name);                                                                      \
    NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm##number##Convertor> Lpm##number##ConvertorIs();             \
    NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm##number##Helper> Lpm##number##HelperIs(U8 numVrfBits);      \
    NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm##number##TableCuckooEntry> Lpm##number##TableCuckooEntryIs( \
        NerioSwitch::LpmKey const& key);                                                                 \
    NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<Lpm##number##PhysicalHashProperties>                            \
        Lpm##number##PhysicalHashPropertiesIs();                                                         \
    extern template class LpmStageTable<number>;                                                         \
    static_assert(true)

NERIO_LPM_STAGE(14);
NERIO_LPM_STAGE(17);
NERIO_LPM_STAGE(20);
NERIO_LPM_STAGE(23);
NERIO_LPM_STAGE(26);
NERIO_LPM_STAGE(29);
NERIO_LPM_STAGE(32);
#undef NERIO_LPM_STAGE

}  // namespace NerioSwitchTable

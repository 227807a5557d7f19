#pragma once

#include <array>
#include <boost/container/flat_map.hpp>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Publisher.h"
#include "NerioSwitch/ProfileInfo.h"
#include "NerioSwitchApi/HwTable.h"
#include "NerioSwitchApi/HwTypes.h"
#include "NerioSwitchApi/RowLayout.h"
#include "TableGauge/TableGauge.h"

namespace NerioSwitchApi {

class SwTable;
class PhysicalHashTableConvertor;

using TableGauge::CapacityTableIndex;

/** What a table copies into its new convertor. */
struct SwTableTypes : Belmo::Node {
    SwTableTypes(Belmo::Ptr<HwTableDescriptorConfig> descriptors, Belmo::Ptr<HwTableCollection> collection)
        : hwTableDescriptorConfig(std::move(descriptors)), hwTableCollection(std::move(collection)) {}

    Belmo::Ptr<HwTableDescriptorConfig> hwTableDescriptorConfig;
    Belmo::Ptr<HwTableCollection> hwTableCollection;
    /** The physical hash tables that several software tables may share, by their helpers' table index. */
    std::map<U32, PhysicalHashTableConvertor*> sharedHashTables;
};

/**
 * Base of all convertors: knows the chip's bit layout, creates a table's hardware tables, writes rows, and
 * reads the shadow back after a restart. A convertor belongs to its table.
 */
class BELMO_EXPORT SwTableProfileConvertor : public Belmo::Node {
public:
    using DescriptorMap = std::map<HwTableId, Belmo::Ptr<HwTableDescriptor>>;
    using HwTableMap = boost::container::flat_map<HwTableId, Belmo::Ptr<HwTableConfig>>;
    using HitBitTableMap = std::map<HwTableId, Belmo::Ptr<HitBitTableConfig>>;

    ~SwTableProfileConvertor() override;

    /** A hit bit of that row was read set. */
    virtual void handleHitBitEntry(HwTableId id, HwIndex index);
    /** Sets up capacity accounting; nothing for tables without it. */
    virtual void doInitTableStats();
    /** Creates the table's hardware tables. */
    virtual void doCreateHwTables(TableState state) = 0;
    virtual void doInitHwReadInfo();
    /**
     * Walks all rows and writes those that differ from what the software table wants. Rows that it does not
     * want get the default row: all of them with `resetHw`, otherwise those that the shadow does not hold.
     */
    virtual void initHwEntries(bool resetHw, U32 id) = 0;
    /** Reads the shadow back into the software table. */
    virtual void syncEntries(U32 id) = 0;
    virtual void initEntryCounter(TableGauge::TableKey const& key, U32 capacity, CapacityTableIndex index);

    /** Runs when the descriptors' `initialized` has come up. */
    virtual void handleInitialized();
    /** The words that the software table wants in a row; nothing where it wants none. For verification. */
    virtual std::optional<HwEntryConfig> wantedEntry(HwTableId id, HwIndex index) const;
    /**
     * The forms that rows of a hardware table have on this chip, for tools that show rows. The first one
     * whose `holds` says so, or is empty, is that of a row. Empty for a table that does not tell.
     */
    virtual std::vector<RowLayout> rowLayouts(HwTableId id) const;

    DescriptorMap const& descriptors() const { return descriptors_; }
    HwTableMap const& hwTables() const { return hwTables_; }
    /** Descriptor and hardware table of an id that `doCreateHwTables` recorded. */
    Belmo::Ptr<HwTableDescriptor> const& descriptor(HwTableId id) const { return descriptors_.at(id); }
    Belmo::Ptr<HwTableConfig> const& hwTable(HwTableId id) const { return hwTables_.at(id); }

    void descriptorIs(HwTableId id, Belmo::Ptr<HwTableDescriptor> const& descriptor) {
        descriptors_[id] = descriptor;
    }
    void hwTableIs(HwTableId id, Belmo::Ptr<HwTableConfig> const& table) { hwTables_[id] = table; }

    HitBitTableMap const& hitBitTables() const { return hitBitTables_; }
    /** Descriptor and table of the hit bits that go with a hardware table. */
    Belmo::Ptr<HitBitTableDescriptor> const& hitDescriptor(HwTableId id) const {
        return hitDescriptors_.at(id);
    }
    Belmo::Ptr<HitBitTableConfig> const& hitBitTable(HwTableId id) const { return hitBitTables_.at(id); }

    void hitDescriptorIs(HwTableId id, Belmo::Ptr<HitBitTableDescriptor> const& descriptor) {
        hitDescriptors_[id] = descriptor;
    }
    void hitBitTableIs(HwTableId id, Belmo::Ptr<HitBitTableConfig> const& table);

    /** Bits of a data word that are control bits and not part of an entry's content. */
    void hwStaticWordIs(U8 dataArrayIndex, U32 mask) { staticWords_.at(dataArrayIndex) = mask; }
    void hwStaticWordDel(U8 dataArrayIndex) { staticWords_.at(dataArrayIndex) = 0; }
    U32 hwStaticWord(U8 dataArrayIndex) const { return staticWords_.at(dataArrayIndex); }
    /** Whether a hardware table's shadow lacks the row, or holds other content in the first `count` words. */
    bool differs(HwTableConfig const& table, HwIndex index, U32 const* words, U8 count) const {
        auto const* stored = table.storedWords(index);
        if (stored == nullptr) return true;
        U32 different = 0;
        for (U8 i = 0; i < count; ++i)
            different |= (stored[i] ^ words[i]) & ~staticWords_[i];
        return different != 0;
    }

    /** Positions of the strobes in the control word, where a table has one. */
    U8 readStrobeBit() const { return readStrobeBit_; }
    U8 writeStrobeBit() const { return writeStrobeBit_; }

    void typesAre(SwTableTypes const& types);
    void gaugesAre(Belmo::Ptr<TableGauge::Gauges> const& gauges) { gauges_ = gauges; }
    Belmo::Ptr<TableGauge::Counter> entryCounter(CapacityTableIndex index) const;

    Belmo::Ptr<NerioSwitch::ProfileInfo const> const& profile() const { return profile_; }
    void profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const> const& profile) { profile_ = profile; }

protected:
    HwTableDescriptorConfig& descriptorConfig() const { return *descriptorConfig_; }
    HwTableCollection& collection() const { return *collection_; }
    /** Declares a hardware table of these rows and records both its halves under `id`. */
    void createHwTable(HwTableId id, TableState state, HwIndex firstIndex, HwIndex lastIndex,
                       Belmo::Ptr<HwTableRegisterMapping> const& mapping);
    /** The same for the hit bits of the hardware table of that name. */
    void createHitBitTable(HwTableId id, TableState state, HwIndex firstIndex, HwIndex lastIndex,
                           Belmo::String const& name, Belmo::Ptr<HitBitReadInfoWrapper> const& readInfo);
    void strobeBitsAre(U8 read, U8 write) {
        readStrobeBit_ = read;
        writeStrobeBit_ = write;
    }

private:
    DescriptorMap descriptors_;
    HwTableMap hwTables_;
    std::map<HwTableId, Belmo::Ptr<HitBitTableDescriptor>> hitDescriptors_;
    HitBitTableMap hitBitTables_;
    std::array<U32, maxEntryWords> staticWords_{};
    U8 readStrobeBit_ = 0;
    U8 writeStrobeBit_ = 0;
    Belmo::Ptr<NerioSwitch::ProfileInfo const> profile_;
    Belmo::Ptr<HwTableDescriptorConfig> descriptorConfig_;
    Belmo::Ptr<HwTableCollection> collection_;
    Belmo::Ptr<TableGauge::Gauges> gauges_;
    std::map<CapacityTableIndex, Belmo::Ptr<TableGauge::Counter>> counters_;
};

/**
 * Base of all software tables: what an agent talks to. It keeps the wanted state, and once `initialized`
 * every change of it reaches hardware in the call that makes it, on the caller's thread.
 */
class BELMO_EXPORT SwTable : public Belmo::Node {
public:
    ~SwTable() override;

    /** The table's number in the system's number space; 0 for tables without one. */
    virtual U32 swTableId() const;
    /** Creates and attaches the convertor. */
    virtual void doSetProfileConvertor(Belmo::Ptr<SwTableTypes> const& types) = 0;
    virtual void doCreateHwTable();
    virtual void initHwEntries(bool resetHw);
    virtual void syncEntries();
    /** The end of bring-up: from here on changes reach hardware. */
    virtual void doInitComplete();
    /** Bring-up failed: the convertor goes, to be made anew by the next attempt. */
    virtual void doDetach();

    Belmo::String const& name() const { return name_; }
    Belmo::Ptr<NerioSwitch::ProfileInfo const> const& profile() const { return profile_; }
    void profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const> const& profile) { profile_ = profile; }
    TableState tableState() const { return tableState_; }
    void tableStateIs(TableState state) { tableState_ = state; }
    bool initialized() const { return initialized_; }
    /** Observers of the table's attributes register here. */
    Belmo::Publisher& publisher() { return publisher_; }

    /** The attached convertor; null before a framework attached the table. */
    Belmo::Ptr<SwTableProfileConvertor> const& profileConvertorPtr() const { return convertor_; }
    void profileConvertorPtrIs(Belmo::Ptr<SwTableProfileConvertor> const& convertor) {
        convertor_ = convertor;
    }

    /** The table publishes a status object. */
    bool statusSupported() const { return statusSupported_; }
    /** The table has hit bits. */
    bool hitBitsSupported() const { return hitBitsSupported_; }
    /** The table's hardware tables are copies of each other. */
    bool hwTablesDuplicate() const { return hwTablesDuplicate_; }

    static HitBitTableAccessMode hitBitAccessModeMapping(TableState state);

    /** The unique name of a hardware table: the parts joined by "/", with "/" and "%" in them escaped. */
    static Belmo::String hwTableName(Belmo::String const& swTableName, Belmo::String const& profileName,
                                     Belmo::String const& tableName, HwTableId id);

protected:
    explicit SwTable(Belmo::String name) : name_(std::move(name)) {}
    void statusSupportedIs(bool supported) { statusSupported_ = supported; }
    void hitBitsSupportedIs(bool supported) { hitBitsSupported_ = supported; }
    void hwTablesDuplicateIs(bool duplicate) { hwTablesDuplicate_ = duplicate; }

private:
    Belmo::String name_;
    Belmo::Ptr<NerioSwitch::ProfileInfo const> profile_;
    Belmo::Ptr<SwTableProfileConvertor> convertor_;
    Belmo::Publisher publisher_;
    TableState tableState_ = TableState::reset;
    bool initialized_ = false;
    bool statusSupported_ = false;
    bool hitBitsSupported_ = false;
    bool hwTablesDuplicate_ = false;
};

}  // namespace NerioSwitchApi

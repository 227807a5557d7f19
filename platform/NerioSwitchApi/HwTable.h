#pragma once

#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "NerioSwitchApi/HitBits.h"
#include "NerioSwitchApi/HwRegisters.h"
#include "NerioSwitchApi/HwTypes.h"
#include "NerioSwitchApi/RegisterBus.h"
#include "NerioSwitchApi/Shadow.h"

namespace NerioSwitchApi {

/** The registers of each row of a table, looked up on the bus once, when the table is made. */
class BELMO_EXPORT RowRegisters {
public:
    /** Throws `UnknownRegisterException`, with table and row, where the chip lacks a register. */
    RowRegisters(HwTableRegisterMapping const& mapping, HwIndex firstIndex, HwIndex lastIndex,
                 RegisterBus& bus);

    /** Handles of a row's registers, in word order. */
    std::span<RegisterHandle const> ofRow(HwIndex index) const {
        auto const& set = sets_.size() == 1 ? sets_.front() : sets_[setOfRow_[index - firstIndex_]];
        return {handles_.data() + set.begin, set.size};
    }

    /** Several rows go through the same registers, which then hold only the row written last. */
    bool shared() const { return shared_; }

private:
    struct Set {
        U32 begin;
        U32 size;
    };
    U32 addSet(HwAddressColl const& addresses, RegisterBus& bus);

    HwIndex firstIndex_;
    std::vector<RegisterHandle> handles_;
    std::vector<Set> sets_;
    std::vector<U32> setOfRow_;
    bool shared_ = false;
};

/** A hardware table as it is programmed: its shadow, and behind it its registers. */
class BELMO_EXPORT HwTableConfig : public Belmo::Node {
public:
    HwTableConfig(Belmo::Ptr<RegisterBus> bus, Belmo::Ptr<ShadowTable> shadow, RowRegisters registers);
    ~HwTableConfig() override;

    /**
     * Writes one entry to shadow and hardware: the words it has, as far as the row has registers. A row
     * outside the table throws `Belmo::RangeException`. A bus that fails throws `BusException`; the row is
     * then not held by the shadow, so that whoever comes next writes it again.
     */
    void entryIs(HwEntryConfig const& entry);

    /** The shadow's entry of a row, if it holds one. May throw `Belmo::CorruptionDetectedException`. */
    std::optional<HwEntryConfig> entry(HwIndex index) const { return shadow_->read(index); }
    /** The same, with corruption reported to the shadow and counted as no entry. */
    std::optional<HwEntryConfig> storedEntry(HwIndex index) const;
    /** All eight words of that entry where they lie, until the row is written; null without one. */
    U32 const* storedWords(HwIndex index) const;

    ShadowTable& shadow() const { return *shadow_; }
    RegisterBus& bus() const { return *bus_; }
    std::span<RegisterHandle const> registersOf(HwIndex index) const { return registers_.ofRow(index); }
    bool rowsShareRegisters() const { return registers_.shared(); }

private:
    Belmo::Ptr<RegisterBus> bus_;
    Belmo::Ptr<ShadowTable> shadow_;
    RowRegisters registers_;
};

/** What a convertor declared of a hardware table: name, rows, and whether it may be written yet. */
class BELMO_EXPORT HwTableDescriptor : public Belmo::Node {
public:
    HwTableDescriptor(Belmo::String name, HwTableId id, HwIndex firstIndex, HwIndex lastIndex)
        : name_(std::move(name)), id_(id), firstIndex_(firstIndex), lastIndex_(lastIndex) {}

    Belmo::String const& name() const { return name_; }
    HwTableId id() const { return id_; }
    HwIndex firstIndex() const { return firstIndex_; }
    HwIndex lastIndex() const { return lastIndex_; }
    bool hasRow(HwIndex index) const { return index >= firstIndex_ && index <= lastIndex_; }
    /** Throws `Belmo::RangeException` for a row that the table does not have. */
    void checkRow(HwIndex index) const;
    /** The hardware table exists and may be written. Raised by the framework before `initHwEntries`. */
    bool initialized() const { return initialized_; }
    void initializedIs(bool initialized) { initialized_ = initialized; }

private:
    Belmo::String name_;
    HwTableId id_;
    HwIndex firstIndex_;
    HwIndex lastIndex_;
    bool initialized_ = false;
};

/** A hardware table that the framework built from a descriptor. */
class BELMO_EXPORT HwTable : public Belmo::Node {
public:
    explicit HwTable(Belmo::Ptr<HwTableConfig> config) : config_(std::move(config)) {}
    Belmo::Ptr<HwTableConfig> const& config() const { return config_; }

private:
    Belmo::Ptr<HwTableConfig> config_;
};

/** The hardware tables of a framework, by name. */
class BELMO_EXPORT HwTableCollection : public Belmo::Node {
public:
    /** The table of that name; null if there is none. */
    Belmo::Ptr<HwTable> hwTable(Belmo::String const& name) const;
    void hwTableIs(Belmo::String const& name, Belmo::Ptr<HwTable> const& table) { tables_[name] = table; }
    void hwTableDel(Belmo::String const& name) { tables_.erase(name); }
    /** The hit-bit table of that name; null if there is none. */
    Belmo::Ptr<HitBitTable> hitBitTable(Belmo::String const& name) const;
    void hitBitTableIs(Belmo::String const& name, Belmo::Ptr<HitBitTable> const& table) {
        hitBitTables_[name] = table;
    }
    /** The hit-bit tables whose convertors live. */
    std::vector<Belmo::Ptr<HitBitTableConfig>> hitBitTablesInUse() const;

private:
    std::map<Belmo::String, Belmo::Ptr<HwTable>> tables_;
    std::map<Belmo::String, Belmo::Ptr<HitBitTable>> hitBitTables_;
};

/** Makes hardware tables from what convertors declare. */
class BELMO_EXPORT HwTableDescriptorConfig : public Belmo::Node {
public:
    HwTableDescriptorConfig(Belmo::Ptr<RegisterBus> bus, Belmo::Ptr<ShadowStore> shadows,
                            Belmo::Ptr<HwTableCollection> collection);
    ~HwTableDescriptorConfig() override;

    /**
     * Declares a hardware table of the rows `firstIndex` to `lastIndex`, both inclusive, and makes it: it is
     * in the collection when this returns. Throws `UnknownRegisterException` or `ShadowException`. A name
     * that a living convertor uses is refused with `Belmo::ResourceException`.
     */
    Belmo::Ptr<HwTableDescriptor> hwTableDescIs(Belmo::String const& name, HwTableId id,
                                                Belmo::String const& profileName, TableState state,
                                                HwIndex firstIndex, HwIndex lastIndex,
                                                Belmo::Ptr<HwTableRegisterMapping> const& mapping);
    /** Declares the hit bits of a hardware table, and makes their table in the same way. */
    Belmo::Ptr<HitBitTableDescriptor> hitBitTableDescIs(Belmo::String const& name, HwTableId id,
                                                        Belmo::String const& profileName,
                                                        HitBitTableAccessMode mode, HwIndex firstIndex,
                                                        HwIndex lastIndex,
                                                        Belmo::Ptr<HitBitReadInfoWrapper> const& readInfo);
    RegisterBus& bus() const { return *bus_; }
    /** The descriptor of that name, if a living convertor uses it; null otherwise. */
    Belmo::Ptr<HwTableDescriptor> hwTableDesc(Belmo::String const& name) const;

private:
    Belmo::Ptr<RegisterBus> bus_;
    Belmo::Ptr<ShadowStore> shadows_;
    Belmo::Ptr<HwTableCollection> collection_;
    std::map<Belmo::String, Belmo::Ptr<HwTableDescriptor>> descriptors_;
};

}  // namespace NerioSwitchApi

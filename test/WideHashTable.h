#pragma once

#include <array>
#include <cstring>
#include <utility>

#include "NerioSwitch/CrcHash.h"
#include "Sorn/Format.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/NerioTableHash.h"
#include "NerioSwitchTable/NerioTableHashHelper.h"
#include "chip/SimulatedChip.h"

namespace NerioTest {

/** A key of 102 bits, as the wide tables of the chip have them. */
class WideKey {
    SORN_VALUE_TYPE(NerioTest, WideKey, (U64, low, 0), (U32, middle, 0), (U8, high, 0));

    WideKey(U64 low, U32 middle, U8 high) : low_(low), middle_(middle), high_(high & 0x3F) {}
    std::array<U64, 2> hashNumbers() const { return {low_, U64{high_} << 32 | middle_}; }
};

class WideEntryStatus {
    SORN_VALUE_TYPE(NerioTest, WideEntryStatus, (WideKey, key, {}),
                    (NerioSwitchApi::EntryProgrammedStatus, status,
                     NerioSwitchApi::EntryProgrammedStatus::entryProgrammed),
                    (Belmo::Duration, lastHit, Belmo::Duration::never()));
};

/** A hash table of any geometry, for what no family of one fixed geometry can show. */
struct WideGeometry {
    U8 ways;
    /** Rows of a hash table, as the power of two: 10 to 13. */
    U32 hashBits;

    U32 rowsPerWay() const { return 1u << hashBits; }
    U32 rows() const { return ways * rowsPerWay(); }
};

class WideItem final : public NerioSwitchTable::HashTableItem<WideKey, U32> {
public:
    WideItem(WideKey const& key, U32 hashBits) : HashTableItem(key), hashes_(hashesOf(key, hashBits)) {}

    U32 getHash(U8 number) const override { return hashes_.way(number); }
    Belmo::String toStrep() const override { return Sorn::text(key()); }

    static NerioSwitch::CrcHashes hashesOf(WideKey const& key, U32 hashBits) {
        std::array<U8, 20> bytes{};
        U64 const low = key.low();
        U32 const middle = key.middle();
        std::memcpy(bytes.data(), &low, 8);
        std::memcpy(bytes.data() + 8, &middle, 4);
        bytes[12] = key.high();
        switch (hashBits) {
            case 10:
                return NerioSwitch::crc10Hashes(bytes.data(), 102);
            case 11:
                return NerioSwitch::crc11Hashes(bytes.data(), 102);
            case 12:
                return NerioSwitch::crc12Hashes(bytes.data(), 102);
            default:
                return NerioSwitch::crc13Hashes(bytes.data(), 102);
        }
    }

private:
    NerioSwitch::CrcHashes hashes_;
};

/** Rows: the key in 102 bits, the result behind it, the control word with row and table. */
class WideHashTable final : public NerioSwitchTable::HashTable<WideItem, WideEntryStatus> {
public:
    WideHashTable(Belmo::String const& name, WideGeometry geometry) : HashTable(name), geometry_(geometry) {
        statusSupportedIs(true);
    }

    WideGeometry geometry() const { return geometry_; }
    Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> profileConvertorFactory() const override {
        return Belmo::make<Convertor>();
    }
    Belmo::Ptr<NerioSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
        return Belmo::make<Helper>();
    }

    static constexpr char const* prefix = "ingress/processor_l3[0]/";
    static constexpr U8 controlWord = 4;
    static constexpr U32 writeStrobe = 1u << 17;

    /** The memory behind this table's registers. */
    static Chip::MemoryDescription memory(WideGeometry geometry) {
        Chip::MemoryDescription memory;
        memory.name = "wide";
        for (auto const* data : {"hash_data0", "hash_data1", "hash_data2", "hash_data3"})
            memory.dataRegisters.push_back(Belmo::String(prefix) + data);
        memory.controlRegister = Belmo::String(prefix) + "hash_ctl";
        memory.row = {0, 13};
        memory.way = {13, 2};
        memory.writeStrobe = {17, 1};
        memory.rowsPerWay = geometry.rowsPerWay();
        memory.ways = geometry.ways;
        memory.select = {18, 4};
        return memory;
    }

protected:
    Belmo::Ptr<WideItem> newItem(WideKey const& key) const override {
        return Belmo::make<WideItem>(key, geometry_.hashBits);
    }
    char const* className() const override { return "WideHashTable"; }
    Sorn::TraceHandle const& trace() const override {
        static Sorn::TraceHandle handle("WideHashTable");
        return handle;
    }

private:
    class Helper final : public NerioSwitchTable::NerioTableHashHelper {
    public:
        Helper() : NerioTableHashHelper(1) {}
        Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
            auto const of = table().geometry();
            return Belmo::make<NerioSwitchApi::PhysicalHashProperties>(NerioSwitchApi::PhysicalHashGeometry{
                1, of.rowsPerWay(), of.hashBits, of.ways, 1, controlWord + 1, 0, 1});
        }
        void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override {
            reinterpret_cast<U32*>(buffer)[controlWord] =
                writeStrobe | U32{location.table} << 13 | location.row;
        }
        void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                         Sorn::BytePtr buffer) override {
            auto const& item = static_cast<WideItem const&>(*entry);
            auto* const words = reinterpret_cast<U32*>(buffer);
            words[0] = static_cast<U32>(item.key().low());
            words[1] = static_cast<U32>(item.key().low() >> 32);
            words[2] = item.key().middle();
            words[3] = item.key().high() | item.result() << 6;
            setStaticBuffer(location, buffer);
        }
        Ptr nullHashEntry() override { return table().createHashEntry({}, false); }
        /** A row without a result is an empty one. */
        Ptr decodeHwEntry(NerioSwitchApi::HwIndex index) override {
            auto const stored = convertor()->hwTable(0)->storedEntry(index);
            if (!stored || stored->data(3) >> 6 == 0) return nullptr;
            auto const item =
                table().createHashEntry(WideKey(U64{stored->data(1)} << 32 | stored->data(0), stored->data(2),
                                                static_cast<U8>(stored->data(3) & 0x3F)),
                                        true);
            item->resultIs(stored->data(3) >> 6);
            item->validIs(true);
            return item;
        }

    private:
        WideHashTable& table() const { return static_cast<WideHashTable&>(*swTable()); }
    };

    class Convertor final : public NerioSwitchApi::PhysicalHashTableConvertor {
    public:
        Convertor() { hwStaticWordIs(controlWord, 0xFFFFFFFF); }
        void doCreateHwTables(NerioSwitchApi::TableState state) override {
            auto const registers = NerioSwitchApi::addressesOf(
                prefix, {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"});
            createHwTable(0, state, 0, tableSize() * numHashTables() - 1,
                          Belmo::make<NerioSwitchApi::HwTableRegisterMappingConst>("wide", registers));
        }
    };

    WideGeometry geometry_;
};

}  // namespace NerioTest

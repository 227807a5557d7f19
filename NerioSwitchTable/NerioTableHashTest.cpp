#include "NerioSwitchTable/NerioTableHashTest.h"

#include "Sorn/Format.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/NerioTableHashConvertor.h"

namespace NerioSwitchTable {

using NerioSwitchApi::HwIndex;

namespace {

Sorn::TraceHandle handle("NerioTableHashTest");

constexpr TableIndex tableIndex = 1;
constexpr NerioSwitchApi::PhysicalHashGeometry geometry{.tableId = tableIndex,
                                                        .tableSize = 8,
                                                        .hashBits = 3,
                                                        .numHashTables = 2,
                                                        .rowSlots = 1,
                                                        .entryWords = 3,
                                                        .hitBitsSupported = 1,
                                                        .placementFlag = 1};

/** Words 0 and 1 are key and result; word 2 is the control word. */
struct HashTestRow {
    static constexpr BitField key{"key", 0, 32};
    static constexpr BitField result{"result", 32, 32};
    static constexpr U8 controlWord = 2;
    static constexpr U16 control = 32 * controlWord;
    static constexpr BitField row{"row", control, 12};
    static constexpr BitField table{"table", control + 14, 1};
    /** The control word carries the read strobe's bit, not the write strobe's, and stays so. */
    static constexpr BitField strobe{"strobe", control + 15, 1};
    static constexpr std::array fields{key, result, row, table, strobe};
};
static_assert(fieldsFit(HashTestRow::fields, geometry.entryWords) && fieldsDisjoint(HashTestRow::fields));

class HashTestHelper final : public NerioTableHashHelper {
public:
    HashTestHelper() : NerioTableHashHelper(tableIndex) {}

    Belmo::Ptr<NerioSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
        return Belmo::make<NerioSwitchApi::PhysicalHashProperties>(geometry);
    }

    void setStaticBuffer(Dovra::Cuckoo::CuckooLocation const& location, Sorn::BytePtr buffer) override {
        auto* const words = reinterpret_cast<U32*>(buffer);
        HashTestRow::row.set(words, location.row);
        HashTestRow::table.set(words, location.table);
        HashTestRow::strobe.set(words, 1);
    }

    void setHwBuffer(PtrConst const& entry, Dovra::Cuckoo::CuckooLocation const& location,
                     Sorn::BytePtr buffer) override {
        auto const& item = static_cast<HashTestTableCuckooEntry const&>(*entry);
        auto* const words = reinterpret_cast<U32*>(buffer);
        HashTestRow::key.set(words, item.key().value());
        HashTestRow::result.set(words, item.result().value());
        setStaticBuffer(location, buffer);
    }

    Ptr nullHashEntry() override { return testTable().createHashEntry(HashTestKey(), false); }

    Ptr decodeHwEntry(HwIndex index) override {
        if (!convertor()->hwTable(0)->storedEntry(index)) return nullptr;
        auto const words = storedWords(index);
        auto const item = testTable().createHashEntry(HashTestRow::key.get(words.data()), true);
        item->resultIs(HashTestRow::result.get(words.data()));
        item->validIs(HashTestRow::result.get(words.data()) != 0);
        SORN_TRACE(handle, 7, "Decoded entry is {}", item->toStrep());
        if (copiesDiffer(index, words)) testTable().hwInconsistentEntryIs(item->key(), true);
        return item;
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts() const override {
        return {
            NerioSwitchApi::rowLayout(geometry.entryWords, NerioSwitchApi::rowFields(HashTestRow::fields))};
    }

private:
    HashTestTable& testTable() const { return static_cast<HashTestTable&>(*swTable()); }
};

/** One hardware table for each pipeline, all of them copies. */
class HashConvertorTestTable final : public NerioTableHashConvertor {
public:
    HashConvertorTestTable() {
        strobeBitsAre(15, 16);
        hwStaticWordIs(HashTestRow::controlWord, 0xFFFFFFFF);
    }

    void handleInitialized() override { hwStaticWordIs(HashTestRow::controlWord, 0xFFFFFFFF); }

    void doCreateHwTables(NerioSwitchApi::TableState state) override {
        for (U32 pipeline = 0; pipeline < profile()->numPipelines; ++pipeline) {
            createHashCopy(pipeline, state, tableIndex, Sorn::_fmt("pipeline[%u]/processor/", pipeline),
                           {"hash_data0", "hash_data1", "hash_ctl"}, 0);
        }
    }
};

}  // namespace

HashTestTableCuckooEntry::~HashTestTableCuckooEntry() = default;

U32 HashTestTableCuckooEntry::getHash(U8 hashNumber) const {
    return key().value() >> (hashNumber * 3) & 7;
}

HashInput HashTestTableCuckooEntry::hashInput() const {
    HashInput input;
    input.bits = 32;
    for (U8 byte = 0; byte < 4; ++byte)
        input.bytes[byte] = static_cast<U8>(key().value() >> (8 * byte));
    return input;
}

Belmo::String HashTestTableCuckooEntry::toStrep() const {
    return Sorn::_fmt("HashTestTableCuckooEntry( %u, %u )", key().value(), result().value());
}

HashTestTable::HashTestTable(Belmo::String const& name)
    : HashTable<HashTestTableCuckooEntry, TestEntryStatus>(name) {
    statusSupportedIs(true);
    hitBitsSupportedIs(true);
    hwTablesDuplicateIs(true);
}

HashTestTable::~HashTestTable() = default;

U32 HashTestTable::swTableId() const {
    return tableIndex;
}

Belmo::Ptr<NerioSwitchApi::PhysicalHashTableConvertor> HashTestTable::profileConvertorFactory() const {
    return Belmo::make<HashConvertorTestTable>();
}

Belmo::Ptr<NerioSwitchApi::HashBaseHelper> HashTestTable::hashBaseHelperFactory() const {
    return Belmo::make<HashTestHelper>();
}

Belmo::Ptr<HashTestTableCuckooEntry> HashTestTable::newItem(HashTestKey const& key) const {
    return Belmo::make<HashTestTableCuckooEntry>(key);
}

Sorn::TraceHandle const& HashTestTable::trace() const {
    return handle;
}

Belmo::Ptr<HashTestTable> HashTestTableIs(Belmo::String const& name) {
    return Belmo::make<HashTestTable>(name);
}

Belmo::Ptr<HashTestTable> hashTestTableFactory(Belmo::String const& name) {
    return HashTestTableIs(name);
}

}  // namespace NerioSwitchTable

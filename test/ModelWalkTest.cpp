// A million random operations on one table of each family that stands, against a map and against the chip.
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "BuildUnderTest.h"
#include "NerioSwitchTable/NerioTableAclHashes.h"
#include "NerioSwitchTable/NerioTableAclIndirectCounter.h"
#include "NerioSwitchTable/NerioTableHashTest.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "RandomAcl.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioTest;
using namespace NerioSwitchTable;
using NerioSwitchApi::StartMode;

int const operations = sanitized ? 20'000 : 1'000'000;
constexpr int restarts = 20;

/** Draws keys and results of a family, and says what the chip holds for a key. */
struct HashTestWalk {
    using Table = HashTestTable;
    static auto make() { return hashTestTableFactory("walk"); }
    static HashTestKey key(Random& random) { return below(random, 256); }
    static HashTestResult result(Random& random) { return 1 + below(random, 1000); }
};

struct AclWalk {
    using Table = AclHashTable;
    static auto make() { return aclHashTableFactory("walk", 1, 2); }
    /** One of twice as many keys as there are rows. */
    static NerioSwitch::AclHashKey key(Random& random) {
        static std::vector<NerioSwitch::AclHashKey> const all = [] {
            Random few(6);
            std::vector<NerioSwitch::AclHashKey> keys(std::size_t{2} * 8192);
            for (auto& each : keys)
                each = randomAclKey(few, 2, 6);
            return keys;
        }();
        return all[below(random, all.size())];
    }
    static NerioSwitch::AclHashResult result(Random& random) { return randomAclResult(random, 2, 6); }
};

struct CounterWalk {
    using Table = AclIndirectCounterHashTable;
    static auto make() { return aclIndirectCounterHashTableFactory("walk", 1); }
    static NerioSwitch::AclIndirectCounterHashKey key(Random& random) { return 1 + below(random, 8191); }
    static NerioSwitch::AclIndirectCounterHashResult result(Random& random) { return below(random, 0x1000); }
};

struct PortConfigWalk {
    using Table = PortConfigTable;
    static auto make() { return portConfigTableFactory("walk"); }
    static PortConfigKey key(Random& random) {
        return PortConfigKey(NerioSwitch::ChipPortId(below(random, 52)));
    }
    static PortConfigResult result(Random& random) { return randomValue<PortConfigResult>(random); }
};

template <class Walk>
class ModelWalkTest : public ::testing::Test {
protected:
    using Table = typename Walk::Table;
    using Key = typename Table::Key;
    static constexpr bool isHash = std::is_base_of_v<NerioSwitchApi::HashBaseTable, Table>;

    void start(StartMode mode) {
        table = nullptr;
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, chip, shadows);
        table = Walk::make();
        framework->tableIs(table, mode);
    }

    /** Entries without a place do not come back, and a default result leaves no trace in a plain table. */
    bool comesBack(Key const& key) const {
        if constexpr (isHash) {
            return table->tableStatus()->entryStatus(key).status() ==
                   NerioSwitchApi::EntryProgrammedStatus::entryProgrammed;
        } else {
            return table->entry(key) != typename Table::Result();
        }
    }

    /** Table, placement, shadow and chip all say what the model says. */
    void everythingAgrees() const {
        std::size_t placed = 0;
        ASSERT_EQ(table->entries().size(), model.size());
        for (auto const& [key, result] : table->entries()) {
            ASSERT_TRUE(model.contains(key));
            ASSERT_EQ(model.at(key), result);
            placed += comesBack(key) ? 1 : 0;
        }
        auto const& convertor = *table->profileConvertorPtr();
        for (auto const& [id, hwTable] : convertor.hwTables()) {
            auto const& descriptor = *convertor.descriptor(id);
            for (auto row = descriptor.firstIndex(); row <= descriptor.lastIndex(); ++row) {
                auto const wanted = convertor.wantedEntry(id, row);
                auto const stored = hwTable->storedEntry(row);
                ASSERT_TRUE(stored);
                ASSERT_EQ(wanted.value_or(*stored), *stored) << "row " << row;
            }
        }
        if constexpr (isHash) {
            ASSERT_EQ(table->hashConvertor()->rowsInUse(), placed);
            auto const gauge = convertor.entryCounter(0);
            ASSERT_EQ(gauge ? gauge->used() : placed, placed);
        }
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Belmo::Ptr<Table> table;
    std::map<Key, typename Table::Result> model;
};

using Walks = ::testing::Types<HashTestWalk, AclWalk, CounterWalk, PortConfigWalk>;
TYPED_TEST_SUITE(ModelWalkTest, Walks);

TYPED_TEST(ModelWalkTest, AMillionRandomOperationsAgreeWithTheModel) {
    Random random(20261121);
    this->start(StartMode::cold);
    for (int restart = 0; restart < restarts; ++restart) {
        for (int step = 0; step < operations / restarts; ++step) {
            auto const key = TypeParam::key(random);
            auto const found = this->model.find(key);
            bool const isThere = found != this->model.end();
            if (below(random, 3) == 0) {
                auto const removed = this->table->entryDel(key);
                ASSERT_EQ(removed, isThere ? found->second : typename TypeParam::Table::Result());
                this->model.erase(key);
            } else {
                auto const result = TypeParam::result(random);
                this->table->entryIs(key, result);
                this->model[key] = result;
            }
        }
        this->everythingAgrees();
        if (this->HasFatalFailure()) return;
        std::erase_if(this->model, [&](auto const& entry) { return !this->comesBack(entry.first); });
        auto const before = this->chip->state();
        this->start(StartMode::warm);
        ASSERT_EQ(this->chip->state(), before);
        this->everythingAgrees();
        if (this->HasFatalFailure()) return;
    }
}

}  // namespace

// How hit bits are described, polled, and reported.
#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "NerioSwitchApi/HitBits.h"
#include "NerioSwitchApi/SwTable.h"

#include "NerioSwitchTable/NerioHitBitUtil.h"

namespace {

using namespace NerioSwitchApi;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/** Registers by name. A trigger loads the words prepared for its number, and forgets them, as the chip does.
 */
class HitBus final : public RegisterBus {
public:
    RegisterHandle address(std::string_view path) override {
        if (path.find("hash_") == std::string::npos) throw UnknownRegisterException(path);
        auto const [found, isNew] =
            numbers_.try_emplace(std::string(path), static_cast<U32>(numbers_.size()));
        return {found->second};
    }
    Belmo::String path(RegisterHandle handle) const override {
        for (auto const& [name, number] : numbers_) {
            if (number == handle.number) return name;
        }
        return {};
    }
    U32 read(RegisterHandle handle) override { return words_[path(handle)]; }
    void write(RegisterHandle handle, U32 word) override {
        if (word == failing) throw BusException("stuck");
        writes.emplace_back(path(handle), word);
        for (U32 i = 0; i < 3; ++i)
            words_["l3/hash_data" + std::to_string(i)] = hits[word][i];
        hits.erase(word);
    }

    void hitIs(U32 read, U32 bit) { hits[0x2D0000 + read][bit / 32] |= 1u << bit % 32; }

    std::vector<std::pair<Belmo::String, U32>> writes;
    std::map<U32, std::array<U32, 3>> hits;
    U32 failing = 0xFFFFFFFF;

private:
    std::map<std::string, U32> numbers_;
    std::map<std::string, U32> words_;
};

struct Listener final : SwTableProfileConvertor {
    void doCreateHwTables(TableState) override {}
    void initHwEntries(bool, U32) override {}
    void syncEntries(U32) override {}
    void handleHitBitEntry(HwTableId id, HwIndex index) override {
        auto const hit = hitBitTable(id)->entry(index);
        ASSERT_TRUE(hit);
        ASSERT_EQ(hit->hwIndex(), index);
        heard.emplace_back(index, hit->time().seconds());
    }
    std::vector<std::pair<HwIndex, double>> heard;
};

class HitBitsTest : public ::testing::Test {
protected:
    Belmo::Ptr<HitBitTableConfig> tableIs(U32 tableSize, U32 ways, U32 offset) {
        auto const table =
            Belmo::make<HitBitTableConfig>(NerioSwitchTable::getHitBitMapping("l3/", tableSize, ways, offset),
                                           U32{0}, tableSize * std::max(ways, 1u) - 1, *bus);
        tables.push_back(table);
        return table;
    }
    U32 poll(double time) { return pollHitBits(*bus, tables, Belmo::Duration(time)); }

    Belmo::Ptr<HitBus> bus = Belmo::make<HitBus>();
    std::vector<Belmo::Ptr<HitBitTableConfig>> tables;
};

using Bit = std::tuple<unsigned, U32, U32, U32, U32>;

std::vector<Bit> bitsOf(U32 tableSize, U32 ways, U32 offset) {
    std::vector<Bit> bits;
    auto const mapping = NerioSwitchTable::getHitBitMapping("p/", tableSize, ways, offset);
    for (auto const& info : mapping->readInfos()) {
        for (auto const& [bit, is] : info->bitRegistrations())
            bits.emplace_back(bit, is.firstRead(), is.lastRead(), is.stride(), is.firstIndex());
    }
    return bits;
}

TEST(HitBitMappingTest, TwoTablesOfEightRowsHaveFourBits) {
    EXPECT_THAT(bitsOf(8, 2, 0), ElementsAre(Bit(0, 0, 3, 2, 0), Bit(9, 0, 3, 2, 8), Bit(36, 0, 3, 2, 1),
                                             Bit(45, 0, 3, 2, 9)));
}

TEST(HitBitMappingTest, ThreeTablesBehindAnOffset) {
    EXPECT_THAT(bitsOf(8192, 3, 8),
                ElementsAre(Bit(8, 0, 4095, 2, 0), Bit(17, 0, 4095, 2, 8192), Bit(26, 0, 4095, 2, 16384),
                            Bit(44, 0, 4095, 2, 1), Bit(53, 0, 4095, 2, 8193), Bit(62, 0, 4095, 2, 16385)));
}

TEST(HitBitMappingTest, NoTableHasNoBit) {
    auto const wrapper = NerioSwitchTable::getHitBitMapping("p/", 8, 0, 0);
    ASSERT_EQ(wrapper->readInfos().size(), 1u);
    EXPECT_THAT(wrapper->readInfos().front()->bitRegistrations(), IsEmpty());
}

TEST(HitBitMappingTest, TriggerAndDataRegistersStandBehindThePrefix) {
    auto const info =
        NerioSwitchTable::getHitBitMapping("ingress/processor_l3[1]/", 8, 2, 0)->readInfos().front();
    EXPECT_EQ(info->trigger().path, "ingress/processor_l3[1]/hash_ctl");
    EXPECT_EQ(info->trigger().value, 0x2D0000u);
    ASSERT_EQ(info->data().size(), 3u);
    EXPECT_EQ(info->data().address(0), "ingress/processor_l3[1]/hash_data0");
    EXPECT_EQ(info->data().address(2), "ingress/processor_l3[1]/hash_data2");
}

TEST_F(HitBitsTest, APollMakesHalfAsManyReadsAsThereAreRowsAndReportsEachBitsRow) {
    Listener listener;
    listener.hitBitTableIs(4, tableIs(8, 2, 0));
    bus->hitIs(0, 0);
    bus->hitIs(3, 36);
    bus->hitIs(2, 45);
    EXPECT_EQ(poll(12.5), 3u);
    EXPECT_THAT(bus->writes, ElementsAre(Pair("l3/hash_ctl", 0x2D0000), Pair("l3/hash_ctl", 0x2D0001),
                                         Pair("l3/hash_ctl", 0x2D0002), Pair("l3/hash_ctl", 0x2D0003)));
    EXPECT_THAT(listener.heard, ElementsAre(Pair(0, 12.5), Pair(8 + 5, 12.5), Pair(7, 12.5)));
    EXPECT_EQ(listener.hitBitTable(4)->entry(1), std::nullopt);
    EXPECT_EQ(listener.hitBitTable(4)->entry(16), std::nullopt);

    listener.heard.clear();
    EXPECT_EQ(poll(13), 0u) << "the chip forgets what was read";
    EXPECT_THAT(listener.heard, IsEmpty());
}

TEST_F(HitBitsTest, TablesOfOneProcessorShareTheirReads) {
    Listener small;
    Listener large;
    small.hitBitTableIs(0, tableIs(4, 2, 0));
    large.hitBitTableIs(0, tableIs(8, 2, 1));
    bus->hitIs(1, 0);
    bus->hitIs(1, 1);
    bus->hitIs(3, 0);  // the small table has no fourth read
    bus->hitIs(3, 46);
    EXPECT_EQ(poll(1), 3u);
    EXPECT_EQ(bus->writes.size(), 4u) << "each read is made once, since it clears what it reads";
    EXPECT_THAT(small.heard, ElementsAre(Pair(2, 1)));
    EXPECT_THAT(large.heard, ElementsAre(Pair(2, 1), Pair(8 + 7, 1)));
}

TEST_F(HitBitsTest, HitsReadBeforeTheBusFailedAreReported) {
    Listener listener;
    listener.hitBitTableIs(0, tableIs(8, 2, 0));
    bus->hitIs(1, 0);
    bus->failing = 0x2D0002;
    EXPECT_THROW(poll(1), BusException);
    EXPECT_THAT(listener.heard, ElementsAre(Pair(2, 1)));
}

TEST_F(HitBitsTest, NobodyIsToldOnceTheConvertorIsGone) {
    auto const table = tableIs(8, 2, 0);
    {
        Listener listener;
        listener.hitBitTableIs(0, table);
        EXPECT_TRUE(table->hasConvertor());
    }
    EXPECT_FALSE(table->hasConvertor());
    bus->hitIs(0, 0);
    EXPECT_EQ(poll(1), 1u);
    EXPECT_EQ(table->entry(0), std::nullopt);
}

TEST_F(HitBitsTest, ATableWithoutBitsIsNotRead) {
    tableIs(8, 0, 0);
    EXPECT_EQ(poll(1), 0u);
    EXPECT_THAT(bus->writes, IsEmpty());
}

TEST_F(HitBitsTest, AnUnknownTriggerIsRefused) {
    EXPECT_THROW(Belmo::make<HitBitTableConfig>(
                     [] {
                         auto wrapper = Belmo::make<HitBitReadInfoWrapper>();
                         wrapper->readInfoIs({"nowhere", 1}, addressesOf("l3/", {"hash_data0"}));
                         return wrapper;
                     }(),
                     U32{0}, 7u, *bus),
                 UnknownRegisterException);
}

TEST(HitBitModeTest, TheStateOfTheHardwareChoosesTheMode) {
    EXPECT_NE(SwTable::hitBitAccessModeMapping(TableState::reset),
              SwTable::hitBitAccessModeMapping(TableState::live));
}

}  // namespace

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "Rillog/Rillog.h"

namespace {

std::vector<std::string> textsOf(Rillog::Ring const& ring) {
    std::vector<std::string> texts;
    for (auto const& record : ring.records())
        texts.push_back(record.text);
    return texts;
}

TEST(Rillog, KeepsNoLevelAtFirst) {
    Rillog::Ring ring(4);
    EXPECT_EQ(ring.level(), 0);
    EXPECT_FALSE(ring.enabled(1));
    ring.levelIs(6);
    EXPECT_TRUE(ring.enabled(6));
    EXPECT_FALSE(ring.enabled(7));
}

TEST(Rillog, KeepsWhatARecordIsMadeOf) {
    Rillog::Ring ring(4);
    ring.add("NerioTableLag", 6, "programmed");
    auto const records = ring.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].number, 0u);
    EXPECT_EQ(records[0].handle, "NerioTableLag");
    EXPECT_EQ(records[0].level, 6);
    EXPECT_EQ(records[0].text, "programmed");
}

TEST(Rillog, KeepsTheNewestRecordsInOrder) {
    Rillog::Ring ring(3);
    for (int i = 0; i < 3; ++i)
        ring.add("unit", 1, std::to_string(i));
    EXPECT_EQ(textsOf(ring), (std::vector<std::string>{"0", "1", "2"}));
    for (int i = 3; i < 8; ++i)
        ring.add("unit", 1, std::to_string(i));
    EXPECT_EQ(textsOf(ring), (std::vector<std::string>{"5", "6", "7"}));
    EXPECT_EQ(ring.records().front().number, 5u) << "five records made room";
}

TEST(Rillog, CountsOnAfterItIsCleared) {
    Rillog::Ring ring(3);
    ring.add("unit", 1, "old");
    ring.clear();
    EXPECT_TRUE(ring.records().empty());
    ring.add("unit", 1, "new");
    EXPECT_EQ(textsOf(ring), std::vector<std::string>{"new"});
    EXPECT_EQ(ring.records().front().number, 1u);
}

TEST(Rillog, OfNoCapacityKeepsNothing) {
    Rillog::Ring ring(0);
    ring.add("unit", 1, "lost");
    EXPECT_TRUE(ring.records().empty());
}

TEST(Rillog, TakesRecordsOfSeveralThreads) {
    Rillog::Ring ring(100);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&ring] {
            for (int n = 0; n < 1000; ++n)
                ring.add("unit", 1, "text");
        });
    for (auto& thread : threads)
        thread.join();
    auto const records = ring.records();
    ASSERT_EQ(records.size(), 100u);
    for (U64 i = 0; i < 100; ++i)
        EXPECT_EQ(records[i].number, 3900 + i);
}

TEST(Rillog, HasOneRingPerProcessOf4096Records) {
    auto& ring = Rillog::ring();
    EXPECT_EQ(&ring, &Rillog::ring());
    ring.clear();
    for (int i = 0; i < 5000; ++i)
        ring.add("unit", 1, "text");
    EXPECT_EQ(ring.records().size(), 4096u);
    ring.clear();
}

}  // namespace

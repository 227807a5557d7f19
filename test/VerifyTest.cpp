#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NerioSwitchTable/NerioTableHashTest.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "SwitchFixture.h"
#include "agent/Verify.h"

namespace {

using namespace NerioSwitchTable;

constexpr char const* hwTable = "ports/demo/PortConfig/0";

class VerifyTest : public NerioTest::TableFixture<PortConfigTable> {
protected:
    VerifyTest() : TableFixture([] { return portConfigTableFactory("ports"); }) {
        start();
        table().entryIs(PortConfigKey(5), PortConfigResult().portModeIs(PortConfigMode::qinq));
    }
    Agent::Verification verify() { return Agent::verify(table()); }

    /** Expects exactly one difference, in that row and of that text. */
    void expectDifference(U32 row, std::string const& text) {
        auto const found = verify();
        EXPECT_EQ(found.rows, 52u);
        ASSERT_EQ(found.differences.size(), 1u);
        EXPECT_EQ(found.differences[0].hwTable, hwTable);
        EXPECT_EQ(found.differences[0].row, row);
        // Behind the words stands what they mean.
        auto const& told = found.differences[0].text;
        EXPECT_EQ(told.substr(0, told.find(" (")), text);
    }
    NerioSwitchApi::RegisterHandle registerOf(U32 port) {
        return chip().address(fmt::format("egress/port[{}]/vlan_cfg", port));
    }
};

TEST_F(VerifyTest, FindsNothingInAHealthyTable) {
    holdsAcrossRestart([&] {
        auto const found = verify();
        EXPECT_EQ(found.rows, 52u);
        EXPECT_TRUE(found.differences.empty());
    });
}

TEST_F(VerifyTest, FindsNothingToLookAtBeforeATableIsUp) {
    auto const fresh = portConfigTableFactory("fresh");
    EXPECT_EQ(Agent::verify(*fresh).rows, 0u);
}

TEST_F(VerifyTest, FindsEachFlippedBitOfAChipRegister) {
    for (U32 const row : {0u, 5u, 51u}) {
        auto const word = row == 5 ? 2u : 1u;
        for (U32 bit = 0; bit < 32; ++bit) {
            auto const flipped = word ^ U32 { 1 } << bit;
            chip().write(registerOf(row), flipped);
            expectDifference(
                row, fmt::format("word 0: the shadow holds 0x{:08X}, the chip 0x{:08X}", word, flipped));
            chip().write(registerOf(row), word);
        }
    }
    EXPECT_TRUE(verify().differences.empty());
}

TEST_F(VerifyTest, FindsEachFlippedBitOfTheShadowOfAnEntry) {
    std::vector<U32> const words{2, 0, 0, 0};
    for (U32 word = 0; word < 4; ++word) {
        for (U32 bit = 0; bit < 32; ++bit) {
            auto flipped = words;
            flipped[word] ^= U32{1} << bit;
            shadow().store(5, flipped);
            expectDifference(5, fmt::format("word {}: software wants 0x{:08X}, the shadow holds 0x{:08X}",
                                            word, words[word], flipped[word]));
        }
    }
}

TEST_F(VerifyTest, FindsEachFlippedBitOfTheShadowOfARowWithoutAnEntry) {
    // A row without an entry keeps what it had across a warm start: only the chip can contradict its word 0,
    // and nothing its words behind it.
    for (U32 bit = 0; bit < 32; ++bit) {
        std::vector<U32> const flipped{1 ^ U32{1} << bit, 0, 0, 0};
        shadow().store(17, flipped);
        expectDifference(17,
                         fmt::format("word 0: the shadow holds 0x{:08X}, the chip 0x00000001", flipped[0]));
    }
}

TEST_F(VerifyTest, FindsRowsThatTheShadowDoesNotHold) {
    shadow().drop(17);
    expectDifference(17, "the shadow does not hold the row");
    shadow().store(17, std::vector<U32>{1, 0, 0, 0});
    shadow().corrupt(5);
    auto const found = verify();
    ASSERT_EQ(found.differences.size(), 1u);
    EXPECT_THAT(found.differences[0].text,
                ::testing::StartsWith("row 5 of the shadow of \"ports/demo/PortConfig/0\" is corrupt: "));
}

TEST_F(VerifyTest, FindsRowsOfAnotherLength) {
    shadow().store(5, std::vector<U32>{2, 0, 0});
    expectDifference(5, "software wants 4 words, the shadow holds 3");
    shadow().store(5, std::vector<U32>{2, 0, 0, 0, 0});
    expectDifference(5, "software wants 4 words, the shadow holds 5");
    shadow().store(5, std::vector<U32>{2, 0, 0, 0, 0, 0, 0, 0, 0});
    expectDifference(5, "an array of 9 data words is longer than the limit of 8");
    shadow().store(5, std::vector<U32>{2, 0, 0, 0});
    shadow().store(17, std::vector<U32>{});
    expectDifference(17, "word 0: the shadow holds no word, the chip 0x00000001");
}

TEST_F(VerifyTest, SaysInWhichFieldsARowDiffers) {
    chip().write(registerOf(5), 0x8);
    auto const found = verify();
    ASSERT_EQ(found.differences.size(), 1u);
    EXPECT_EQ(found.differences[0].text,
              "word 0: the shadow holds 0x00000002, the chip 0x00000008 (portMode: 0 instead of 2, "
              "l2ForwardingDisabled: 1 instead of 0)");
}

TEST_F(VerifyTest, RepairWritesTheRowsThatDifferAndNoOther) {
    chip().write(registerOf(5), 0x8);
    shadow().store(5, std::vector<U32>{3, 0, 0, 0});
    chip().write(registerOf(17), 0);
    takeWrites();
    EXPECT_EQ(Agent::repair(table(), verify()), 2u);
    EXPECT_EQ(takeWrites(),
              (NerioTest::RegisterWrites{{"egress/port[5]/vlan_cfg", 2}, {"egress/port[17]/vlan_cfg", 1}}));
    EXPECT_TRUE(verify().differences.empty());
    EXPECT_EQ(Agent::repair(table(), verify()), 0u);
}

TEST_F(VerifyTest, NamesEveryRowThatDiffers) {
    chip().write(registerOf(3), 0);
    shadow().drop(40);
    auto const found = verify();
    ASSERT_EQ(found.differences.size(), 2u);
    EXPECT_EQ(found.differences[0].row, 3u);
    EXPECT_EQ(found.differences[1].row, 40u);
}

/** A table whose rows lie in memories behind shared registers. */
class VerifyMemoryTest : public NerioTest::TableFixture<HashTestTable> {
protected:
    VerifyMemoryTest() : TableFixture([] { return hashTestTableFactory("h"); }) {
        start();
        table().entryIs(0x0D, 77);
        table().entryIs(0x15, 78);
    }
    Agent::Verification verify() {
        return Agent::verify(table(),
                             [this](auto registers, auto words) { chip().readRow(registers, words); });
    }
    void writeChip(char const* name, U32 word) {
        chip().write(chip().address(std::string("pipeline[1]/processor/") + name), word);
    }
};

TEST_F(VerifyMemoryTest, FindsNothingInAHealthyTable) {
    holdsAcrossRestart([&] {
        auto const found = verify();
        EXPECT_EQ(found.rows, 2u * 16);
        EXPECT_TRUE(found.differences.empty());
    });
}

TEST_F(VerifyMemoryTest, FindsARowThatTheMemoryHoldsOtherwise) {
    writeChip("hash_data0", 0x0D);
    writeChip("hash_data1", 79);
    writeChip("hash_ctl", 0x8005);
    auto const found = verify();
    ASSERT_EQ(found.differences.size(), 1u);
    EXPECT_EQ(found.differences[0].hwTable, "h/demo/HashTest/1");
    EXPECT_EQ(found.differences[0].row, 5u);
    EXPECT_EQ(found.differences[0].text,
              "word 1: the shadow holds 0x0000004D, the chip 0x0000004F (result: 0x4F instead of 0x4D)");
    EXPECT_TRUE(Agent::verify(table()).differences.empty()) << "nobody looks into the memory";
}

TEST_F(VerifyMemoryTest, ComparesControlWordsWithTheSoftwareAlone) {
    U32 const elsewhere[] = {0, 0, 0x8004};
    shadow().store(3, elsewhere);
    auto const found = verify();
    ASSERT_EQ(found.differences.size(), 1u);
    EXPECT_EQ(found.differences[0].row, 3u);
    EXPECT_EQ(found.differences[0].text,
              "word 2: software wants 0x00008003, the shadow holds 0x00008004 (row: 4 instead of 3)");
}

TEST_F(VerifyMemoryTest, ARowThatCannotBeReadDiffers) {
    auto const found =
        Agent::verify(table(), [](auto, auto) { throw NerioSwitchApi::BusException("no answer"); });
    ASSERT_EQ(found.differences.size(), 2u * 16);
    EXPECT_EQ(found.differences[31].text, "no answer");
}

}  // namespace

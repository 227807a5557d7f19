#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AclFixture.h"
#include "FailureText.h"
#include "NerioSwitchTable/NerioTableProtocolRemap.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

ProtocolRemapKey protocol(U8 number) {
    return ProtocolRemapKey(number);
}

ProtocolRemapResult remapped(U8 number) {
    return ProtocolRemapResult(number);
}

class ProtocolRemapTest : public NerioTest::TableFixture<ProtocolRemapTable> {
protected:
    ProtocolRemapTest()
        : TableFixture([this] { return protocolRemapTableFactory("protocols", pipeline_); }) {}

    void pipelineIs(U8 pipeline) { pipeline_ = pipeline; }
    /** A row, with the control word where the chip at hand has it. */
    std::vector<U32> row(U32 protocol, U32 number, U32 parity, U32 pipelineBit = 0) {
        std::size_t const control = profile().aclRegVer < 2 ? 160 : 128;
        return packed(control / 32 + 1, {{0, 4, number},
                                         {4, 1, parity},
                                         {control, 8, protocol},
                                         {control + 13, 2, 3},
                                         {control + 16, 1, pipelineBit},
                                         {control + 18, 1, 1}});
    }
    std::vector<Belmo::String> registers() {
        std::vector<Belmo::String> names;
        for (auto const handle : convertor().hwTable(0)->registersOf(0)) {
            names.push_back(chip().path(handle));
            EXPECT_TRUE(names.back().starts_with("ingress/processor_acl[1]/"));
            names.back().erase(0, names.back().find('/', 8) + 1);
        }
        return names;
    }

private:
    U8 pipeline_ = 1;
};

TEST_F(ProtocolRemapTest, RowsHaveSixWordsBelowRegisterVersionTwoAndFiveFromThereOn) {
    for (U32 const version : {0u, 1u, 2u, 3u}) {
        SCOPED_TRACE(version);
        profile().aclRegVer = version;
        auto const ofVersion = NerioSwitch::profilePreset("default");
        ofVersion->aclRegVer = version;
        NerioSwitchApi::TableFramework framework(ofVersion, Chip::simulatedChip(*ofVersion),
                                                 NerioSwitchApi::memoryShadowStore());
        auto const protocols = protocolRemapTableFactory("protocols", 1);
        framework.tableIs(protocols, StartMode::cold);
        protocols->entryIs(protocol(0xA5), remapped(7));
        auto const stored = protocols->profileConvertorPtr()->hwTable(0)->storedEntry(0xA5);
        std::vector<U32> const words(stored->words().begin(), stored->words().end());
        EXPECT_EQ(words, row(0xA5, 7, 1));
        EXPECT_THAT(words, SizeIs(version < 2 ? 6 : 5));
    }
}

TEST_F(ProtocolRemapTest, RegistersFollowTheRegisterVersion) {
    start();
    EXPECT_THAT(registers(), ElementsAre("hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"));
}

TEST_F(ProtocolRemapTest, BelowRegisterVersionTwoAFifthDataWordGoesOut) {
    profile().aclRegVer = 1;
    start();
    EXPECT_THAT(registers(), ElementsAre("hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_data4",
                                         "hash_ctl"));
    EXPECT_EQ(takeWriteCount(), 256u * 6);
    table().entryIs(protocol(6), remapped(7));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(protocol(6)), remapped(0x17));
    auto words = row(6, 7, 1);
    words[5] ^= 1u << 17;
    shadow().store(6, words);
    table().handleEntry(protocol(6));
    EXPECT_EQ(takeWriteCount(), 6u) << "the compare covers the control word, although it is static";
    EXPECT_EQ(shadowWords(6), row(6, 7, 1));
}

TEST_F(ProtocolRemapTest, TheStaticWordStaysFiveBehindTheControlWordOfVersionTwo) {
    start();
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(convertor().hwStaticWord(word), word == 5 ? 0xFFFFFFFFu : 0u);
    convertor().hwStaticWordDel(5);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(5), 0xFFFFFFFFu) << "declared again";
    EXPECT_THAT(shadowWords(0), SizeIs(5));
}

TEST_F(ProtocolRemapTest, AColdStartWritesAllProtocols) {
    start();
    EXPECT_EQ(takeWriteCount(), 256u * 5);
    EXPECT_EQ(shadowWords(0), row(0, 0, 0));
    EXPECT_EQ(shadowWords(255), row(255, 0, 0));
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 255u);
    EXPECT_EQ(convertor().descriptor(0)->name(), "protocols/demo/ProtocolRemap/1");
}

TEST_F(ProtocolRemapTest, ParityCoversTheFourBitsThatReachHardware) {
    start();
    table().entryIs(protocol(6), remapped(0x1F));
    EXPECT_EQ(shadowWords(6), row(6, 0xF, 0)) << "of 31 four bits, with the parity of those";
    for (U8 number = 0; number < 16; ++number) {
        table().entryIs(protocol(17), remapped(number));
        EXPECT_EQ(shadowWords(17), row(17, number, static_cast<U32>(__builtin_popcount(number)) & 1));
    }
}

TEST_F(ProtocolRemapTest, ASharedProcessorIsToldThePipelinesLowBit) {
    NerioTest::aclChipIs(profile(), {6, false});
    for (U8 const pipeline : {U8{2}, U8{3}}) {
        pipelineIs(pipeline);
        start();
        EXPECT_THAT(registers(), SizeIs(5));
        table().entryIs(protocol(6), remapped(3));
        EXPECT_EQ(shadowWords(6), row(6, 3, 0, pipeline & 1u));
    }
}

TEST_F(ProtocolRemapTest, AWriteOfAnUnchangedRowReachesNeitherShadowNorHardware) {
    start();
    table().entryIs(protocol(6), remapped(3));
    takeWrites();
    auto const before = shadowWords(6);
    table().entryIs(protocol(6), remapped(0x13));
    EXPECT_EQ(table().entry(protocol(6)), remapped(0x13));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(shadowWords(6), before);
    table().entryIs(protocol(6), remapped(4));
    EXPECT_EQ(takeWriteCount(), 5u);
}

TEST_F(ProtocolRemapTest, TheCompareCoversTheControlWord) {
    start();
    auto words = row(6, 0, 0);
    words[4] ^= 1u << 17;
    shadow().store(6, words);
    takeWrites();
    table().handleEntry(protocol(6));
    EXPECT_EQ(takeWriteCount(), 5u);
}

TEST_F(ProtocolRemapTest, ASetParityBitComesBackAsSixteenMoreAndIsLeftOutOfTheNextRow) {
    start();
    table().entryIs(protocol(6), remapped(7));
    table().entryIs(protocol(17), remapped(3));
    table().entryIs(protocol(47), remapped(0x10));
    takeWrites();
    restart();
    EXPECT_EQ(table().entry(protocol(6)), remapped(0x17));
    EXPECT_EQ(table().entry(protocol(17)), remapped(3));
    EXPECT_FALSE(table().entryHas(protocol(47))) << "its row is zero";
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(shadowWords(6), row(6, 7, 1));
    restart();
    EXPECT_EQ(table().entry(protocol(6)), remapped(0x17));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(ProtocolRemapTest, EightBitsComeBackAsTheyAre) {
    start();
    shadow().store(6, std::vector<U32>{0xFFFFFFE0, 0, 0, 0, row(6, 0, 0)[4]});
    restart();
    EXPECT_EQ(table().entry(protocol(6)), remapped(0xE0));
    EXPECT_EQ(shadowWords(6), row(6, 0, 0)) << "the start writes what an entry of these encodes to";
}

TEST_F(ProtocolRemapTest, DeletingWritesZero) {
    start();
    table().entryIs(protocol(6), remapped(7));
    takeWrites();
    EXPECT_EQ(table().entryDel(protocol(6)), remapped(7));
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("ingress/processor_acl[1]/hash_data0", 0),
                            Pair("ingress/processor_acl[1]/hash_data1", 0),
                            Pair("ingress/processor_acl[1]/hash_data2", 0),
                            Pair("ingress/processor_acl[1]/hash_data3", 0),
                            Pair("ingress/processor_acl[1]/hash_ctl", 6u | 3u << 13 | 1u << 18)));
    EXPECT_EQ(table().entryDel(protocol(6)), ProtocolRemapResult());
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(ProtocolRemapTest, AWarmStartKeepsRowsThatAResetClears) {
    start();
    auto stray = row(6, 0, 0);
    stray[1] = 5;
    shadow().store(6, stray);
    shadow().drop(7);
    shadow().corrupt(8);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableProtocolRemap", 9);
    restart();
    EXPECT_EQ(takeWriteCount(), 10u) << "the missing row and the corrupt one";
    EXPECT_THAT(trace.lines(),
                ElementsAre("pipe 1 index 7 does not exist.", "pipe 1 index 8 does not exist."));
    EXPECT_EQ(shadowWords(6), stray);
    restart(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 256u * 5);
    EXPECT_EQ(shadowWords(6), row(6, 0, 0));
}

TEST_F(ProtocolRemapTest, EntriesBeforeTheStartAreWrittenByItAndLaterOnesAreTraced) {
    make();
    NerioTest::TraceCapture const trace("NerioTableProtocolRemap", 9);
    table().entryIs(protocol(6), remapped(7));
    EXPECT_EQ(takeWriteCount(), 0u);
    bringUp(StartMode::cold);
    EXPECT_EQ(shadowWords(6), row(6, 7, 1));
    EXPECT_TRUE(trace.lines().empty());
    table().entryIs(protocol(17), remapped(8));
    EXPECT_THAT(trace.lines(), ElementsAre("Set hwTableEntry key: 17"));
}

TEST_F(ProtocolRemapTest, NothingIsWrittenWhileTheDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(protocol(6), remapped(7));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST(ProtocolRemapValueTest, HasItsTexts) {
    EXPECT_EQ(remapped(6).resultString(), "remappedProtocol: 6 ");
    EXPECT_EQ(Sorn::text(protocol(17)), "NerioSwitchTable::ProtocolRemapKey(protocol=17)");
    Sorn::CharRange range("NerioSwitchTable::ProtocolRemapResult(remappedProtocol=31)");
    EXPECT_EQ(ProtocolRemapResult(range), remapped(31));
}

}  // namespace

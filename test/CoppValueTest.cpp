#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <utility>

#include "NerioSwitchTable/NerioTableCopp.h"
#include "PackedWords.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ProfileHwApi;
using NerioTest::packed;
using testing::SizeIs;

CoppEntry raw(U32 result) {
    return CoppEntry().resultIs(result);
}

CoppEntry limit(U32 increment, U32 scaleFactor = 0) {
    return CoppEntry().incrementIs(increment).scaleFactorIs(scaleFactor);
}

/** The two forms of a limit's word, by whether it is the one behind the CPU. */
U32 word(CoppEntry const& entry, bool forCpuTx, U16 pipelines, bool scales) {
    return entry.toHardwareValue(3, forCpuTx, pipelines, scales);
}

TEST(CoppValueTest, AnEntryIsFourAttributesInOrder) {
    auto const entry = CoppEntry().resultIs(1).intervalIs(2.5f).incrementIs(3).scaleFactorIs(4);
    auto const text = Sorn::text(entry);
    EXPECT_EQ(text, "NerioSwitchTable::CoppEntry(result=1,interval=2.5,increment=3,scaleFactor=4)");
    Sorn::CharRange range(text);
    EXPECT_EQ(CoppEntry(range), entry);
    EXPECT_TRUE(range.empty());
    EXPECT_TRUE(entry.isEq(entry));
    for (auto const& larger : {CoppEntry(entry).resultIs(2), CoppEntry(entry).intervalIs(3),
                               CoppEntry(entry).incrementIs(4), CoppEntry(entry).scaleFactorIs(5)}) {
        EXPECT_FALSE(entry.isEq(larger));
        EXPECT_LT(entry, larger);
    }
    EXPECT_LT(CoppEntry(entry).scaleFactorIs(9), CoppEntry(entry).resultIs(2)) << "the result counts first";
    EXPECT_EQ(CoppEntry(), CoppEntry().resultIs(0).intervalIs(0).incrementIs(0).scaleFactorIs(0));
}

TEST(CoppValueTest, ResultStringIsTheRawValueInEightDigits) {
    EXPECT_EQ(raw(1000).resultString(), "0x000003E8");
    EXPECT_EQ(limit(1000, 3).resultString(), "0x00000000");
}

TEST(CoppValueTest, ConstantsAndDefaults) {
    EXPECT_EQ(CoppEntry::filterAll, 0u);
    EXPECT_EQ(CoppEntry::filterNone, 0x3FFFFu);
    EXPECT_EQ(CoppEntry::ticksPerSecond, 31250000u);
    EXPECT_EQ(CoppEntry::minIncrementVal, 12u);
    EXPECT_EQ(CoppEntry::maxIncrementVal, 0x3FFFFu);
    EXPECT_EQ(CoppEntry::defaultValue(0), 31250000u);
    EXPECT_EQ(CoppEntry::defaultValue(1), 0x3FFFFu);
    EXPECT_EQ(CoppEntry::defaultValue(14), 0x3FFFFu);
    for (auto const& [pipelines, percent] :
         {std::pair{0u, 100u}, {1u, 100u}, {2u, 66u}, {3u, 50u}, {16u, 50u}})
        EXPECT_EQ(CoppEntry::pipelineScalingPercent(pipelines), percent) << pipelines;
}

TEST(CoppValueTest, KeysAreTheHardwareIndicesUpTo14) {
    EXPECT_EQ(CoppEntryKey(14).value(), 14);
    EXPECT_EQ(CoppEntryKey().value(), 0);
    EXPECT_THROW(CoppEntryKey(15), Belmo::RangeException);
}

TEST(CoppValueTest, WithoutScaleFactorAPipelineGetsItsShareOfTheResult) {
    for (auto const& [pipelines, share] : {std::pair{U16{1}, 1000u}, {U16{2}, 660u}, {U16{3}, 500u}}) {
        EXPECT_EQ(word(raw(1000), false, pipelines, false), share) << pipelines;
        EXPECT_EQ(word(raw(1000), true, pipelines, false), 1000u) << pipelines;
    }
    EXPECT_EQ(word(raw(1), false, 2, false), 1u) << "66 hundredths";
    EXPECT_EQ(word(raw(2), false, 2, false), 1u) << "132 hundredths";
    EXPECT_EQ(word(raw(3), false, 4, false), 1u);
    EXPECT_EQ(word(raw(0xFFFFFFFF), false, 2, false), 0xFFFFFFFFu / 100 * 66 + 95 * 66 / 100)
        << "a result has no more than its 32 bits, and the share is taken in 64";
}

TEST(CoppValueTest, WithoutScaleFactorAllAndNothingAreNoMatterOfShares) {
    for (auto const pipelines : {U16{1}, U16{2}, U16{3}}) {
        EXPECT_EQ(word(raw(CoppEntry::filterNone), false, pipelines, false), 0x3FFFFu);
        EXPECT_EQ(word(raw(CoppEntry::filterAll), false, pipelines, false), 0u);
    }
}

TEST(CoppValueTest, WithScaleFactorAPipelineGetsItsShareOfTheIncrement) {
    for (auto const& [pipelines, share] : {std::pair{U16{1}, 1000u}, {U16{2}, 660u}, {U16{3}, 500u}}) {
        EXPECT_EQ(word(limit(1000, 5), false, pipelines, true), packed(1, {{0, 18, share}, {20, 3, 5}})[0]);
        EXPECT_EQ(word(limit(1000, 5), true, pipelines, true), packed(1, {{0, 18, 1000}, {20, 3, 5}})[0]);
    }
    EXPECT_EQ(word(limit(0x3FFFF), false, 2, true), 0x3FFFFu * 66 / 100) << "the largest one has shares too";
}

TEST(CoppValueTest, WithScaleFactorAnIncrementOfZeroBecomesOneInPipelinesAlone) {
    for (auto const pipelines : {U16{1}, U16{2}, U16{3}}) {
        EXPECT_EQ(word(limit(0, 2), false, pipelines, true), packed(1, {{0, 18, 1}, {20, 3, 2}})[0]);
        EXPECT_EQ(word(limit(0, 2), true, pipelines, true), packed(1, {{20, 3, 2}})[0]);
    }
}

TEST(CoppValueTest, WithScaleFactor18BitsAndThreeBitsReachHardware) {
    EXPECT_EQ(word(limit(0xFFFFFFFF, 0xFFFFFFFF), true, 2, true), 0x73FFFFu);
    EXPECT_EQ(word(limit(0x40000, 8), true, 2, true), 0u);
    EXPECT_EQ(word(limit(0x40000, 9), false, 1, true), 1u << 20) << "the share is cut, not kept above zero";
    EXPECT_EQ(word(limit(0xFFFFFFFF), false, 3, true), 0x3FFFFu) << "half of it, cut to 18 bits";
}

TEST(CoppValueTest, AnIntervalHasNoShareAndLosesItsFraction) {
    for (bool const forCpuTx : {false, true}) {
        auto const ticks = [&](float interval) {
            return CoppEntry().intervalIs(interval).resultIs(7).toHardwareValue(0, forCpuTx, 3, true);
        };
        EXPECT_EQ(ticks(31250000), 31250000u);
        EXPECT_EQ(ticks(2.999f), 2u);
        EXPECT_EQ(ticks(0.5f), 0u);
        EXPECT_EQ(ticks(-1), 0u);
        EXPECT_EQ(ticks(std::numeric_limits<float>::quiet_NaN()), 0u);
        EXPECT_EQ(ticks(4294967040.f), 4294967040u);
        EXPECT_EQ(ticks(4294967296.f), 0xFFFFFFFFu);
        EXPECT_EQ(ticks(std::numeric_limits<float>::infinity()), 0xFFFFFFFFu);
        EXPECT_EQ(CoppEntry().intervalIs(9).resultIs(7).toHardwareValue(0, forCpuTx, 3, false), 7u);
    }
}

TEST(CoppValueTest, AWordBehindTheCpuReadsBack) {
    EXPECT_EQ(CoppEntry::fromCpuHardwareValue(0, 1000, false), raw(1000));
    EXPECT_EQ(CoppEntry::fromCpuHardwareValue(5, 0xFFFFFFFF, false), raw(0xFFFFFFFF));
    EXPECT_EQ(CoppEntry::fromCpuHardwareValue(0, 31250000, true), CoppEntry().intervalIs(31250000));
    EXPECT_EQ(CoppEntry::fromCpuHardwareValue(5, packed(1, {{0, 18, 777}, {20, 3, 6}})[0], true),
              limit(777, 6));
    EXPECT_EQ(CoppEntry::fromCpuHardwareValue(5, 0xFF8C0000, true), CoppEntry())
        << "bits that belong to nothing are passed over";
}

using CoppValueDeathTest = testing::Test;

TEST(CoppValueDeathTest, NoPipelinesIsAnAssertion) {
    EXPECT_DEATH(CoppEntry().toHardwareValue(1, true, 0, true), "Assertion failed: numPipelines ");
}

/** The registers of each version, by index; an empty one has none. */
using Registers = std::array<char const*, 15>;
constexpr Registers registersBelow41{"interval_period",
                                     "reserved_mac_limit",
                                     "igmp_limit",
                                     "link_local_limit",
                                     "packet_forwarding_limit",
                                     "",
                                     "",
                                     "",
                                     "",
                                     "",
                                     "",
                                     "",
                                     "mac_learn_limit",
                                     "",
                                     ""};
constexpr Registers registersOf41{"interval_period",
                                  "reserved_mac_limit",
                                  "igmp_limit",
                                  "link_local_limit",
                                  "l2_packet_limit",
                                  "",
                                  "",
                                  "",
                                  "l3_high_packet_limit",
                                  "l3_low_packet_limit",
                                  "multicast_packet_limit",
                                  "l3_exception_limit",
                                  "mac_learn_limit",
                                  "",
                                  "default_limit"};
constexpr Registers registersOf51{"interval_period",
                                  "reserved_mac_limit",
                                  "igmp_limit",
                                  "link_local_limit",
                                  "l2_packet_limit",
                                  "cpu_critical_limit",
                                  "",
                                  "ptp_limit",
                                  "l3_high_packet_limit",
                                  "l3_low_packet_limit",
                                  "multicast_packet_limit",
                                  "l3_exception_limit",
                                  "mac_learn_limit",
                                  "",
                                  "default_limit"};
constexpr Registers registersOf61{"interval_period",
                                  "reserved_mac_limit",
                                  "igmp_limit",
                                  "link_local_limit",
                                  "l2_packet_limit",
                                  "cpu_critical_limit",
                                  "nat_acl_packet_limit",
                                  "ptp_limit",
                                  "l3_high_packet_limit",
                                  "l3_low_packet_limit",
                                  "multicast_packet_limit",
                                  "l3_exception_limit",
                                  "mac_learn_limit",
                                  "mirror_limit",
                                  "default_limit"};

struct VersionCase {
    ProfileHwApi hwApi;
    Registers const& registers;
    /** The interval is one of the chip. */
    bool chipInterval = false;
};

std::array<VersionCase, 12> const versions{{{{2, 0}, registersBelow41},
                                            {{4, 0}, registersBelow41},
                                            {{4, 1}, registersOf41},
                                            {{5, 0}, registersOf41},
                                            {{5, 1}, registersOf51},
                                            {{6, 0}, registersOf51},
                                            {{6, 1}, registersOf61},
                                            {{6, 2}, registersOf61, true},
                                            {{7, 9}, registersOf61, true},
                                            {{8, 0}, registersOf61, true},
                                            {{9, 0}, registersOf61, true},
                                            {{10, 0}, registersOf61, true}}};

TEST(CoppRegisterMappingTest, RegistersFollowTheHardwareApi) {
    for (auto const& version : versions) {
        SCOPED_TRACE(version.hwApi.text());
        auto const mapping = coppRegisterMapping(version.hwApi, "the table", "block[3]/");
        EXPECT_EQ(mapping->name(), "the table");
        EXPECT_EQ(mapping->prefix(), "block[3]/");
        for (U32 index = 0; index <= 14; ++index) {
            std::string const name = version.registers[index];
            auto const expected = index == 0 && version.chipInterval ? "header/copp_interval"
                                  : name.empty()                     ? ""
                                                                     : "block[3]/" + name;
            auto const registers = mapping->getRegister(index);
            EXPECT_EQ(registers->size(), 1);
            EXPECT_EQ(registers->address(0), expected) << index;
        }
        for (U32 const index : {15u, 255u, 256u, 0xFFFFFFFFu}) {
            auto const registers = mapping->getRegister(index);
            EXPECT_EQ(registers->size(), 1);
            EXPECT_EQ(registers->address(0), "") << index;
        }
    }
}

TEST(CoppRegisterMappingTest, ClassFourTookANewNameAtTheSameIndex) {
    EXPECT_EQ(coppHwTableRegisterMappingFactory("t", "p/")->getRegister(4)->address(0),
              "p/packet_forwarding_limit");
    EXPECT_EQ(coppHwTableRegisterMappingHwApi41Factory("t", "p/")->getRegister(4)->address(0),
              "p/l2_packet_limit");
}

TEST(CoppRegisterMappingTest, LaterVersionsAskTheirForerunners) {
    auto const hwApi51 = coppHwTableRegisterMappingHwApi51Factory("t", "p/");
    Belmo::Ptr<CoppHwTableRegisterMappingHwApi61> const hwApi62 =
        coppHwTableRegisterMappingHwApi62Factory("t", "p/");
    auto const hwApi61 = coppHwTableRegisterMappingHwApi61Factory("t", "p/");
    EXPECT_EQ(hwApi51->getRegister(13)->address(0), "");
    EXPECT_EQ(hwApi61->getRegister(13)->address(0), "p/mirror_limit");
    EXPECT_EQ(hwApi61->getRegister(0)->address(0), "p/interval_period");
    EXPECT_EQ(hwApi62->getRegister(0)->address(0), "header/copp_interval");
    EXPECT_EQ(hwApi62->CoppHwTableRegisterMappingHwApi51::getRegister(7)->address(0), "p/ptp_limit");
    NerioTest::TraceCapture const trace("NerioCoppRegisterMapping", 8);
    hwApi62->getRegister(6);
    ASSERT_THAT(trace.lines(), SizeIs(2));
    EXPECT_THAT(trace.lines()[0], testing::HasSubstr("CoppHwTableRegisterMappingHwApi62::getRegister("));
    EXPECT_THAT(trace.lines()[0], testing::EndsWith(" HwIndex:6"));
    EXPECT_THAT(trace.lines()[1], testing::HasSubstr("CoppHwTableRegisterMappingHwApi61::getRegister("));
    hwApi62->getRegister(5);
    ASSERT_THAT(trace.lines(), SizeIs(5));
    EXPECT_THAT(trace.lines()[4], testing::HasSubstr("CoppHwTableRegisterMappingHwApi51::getRegister("));
    hwApi62->getRegister(0);
    EXPECT_THAT(trace.lines(), SizeIs(6)) << "the interval is its own";
}

TEST(CoppRegisterMappingTest, EarlyVersionsTraceTheCallAndAskNoOther) {
    NerioTest::TraceCapture const trace("NerioCoppRegisterMapping", 8);
    coppHwTableRegisterMappingFactory("t", "p/")->getRegister(15);
    coppHwTableRegisterMappingHwApi41Factory("t", "p/")->getRegister(4);
    coppHwTableRegisterMappingHwApi51Factory("t", "p/")->getRegister(14);
    ASSERT_THAT(trace.lines(), SizeIs(3));
    EXPECT_THAT(trace.lines()[0], testing::HasSubstr("CoppHwTableRegisterMapping::getRegister("));
    EXPECT_THAT(trace.lines()[0], testing::EndsWith(" HwIndex:15"));
    EXPECT_THAT(trace.lines()[1], testing::HasSubstr("CoppHwTableRegisterMappingHwApi41::getRegister("));
    EXPECT_THAT(trace.lines()[1], testing::EndsWith(" HwIndex:4"));
    EXPECT_THAT(trace.lines()[2], testing::HasSubstr("CoppHwTableRegisterMappingHwApi51::getRegister("));
}

}  // namespace

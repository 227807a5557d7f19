#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <zlib.h>

#include "Belmo/Exceptions.h"

#include "FailureText.h"
#include "TemporaryDirectory.h"
#include "agent/FilterSet.h"
#include "agent/TextFile.h"

namespace {

using namespace Agent;

Lanvo::Prefix prefix(U32 address, U8 length) {
    return {Lanvo::IpAddr::fromHostOrder(address), length};
}

FilterRule ruleOf(Belmo::String const& line) {
    return filterRulesFromText(line).at(0);
}

TEST(FilterSetTest, ALineGivesARule) {
    auto const rule =
        ruleOf("@176.19.181.33/32\t90.145.23.0/24\t0 : 65535\t1550 : 1551\t0x06/0xFF\t0x0000/0x0200\t\n");
    EXPECT_EQ(rule, (FilterRule{prefix(0xB013B521, 32), prefix(0x5A911700, 24), {}, {1550, 1551}, 6}));
}

TEST(FilterSetTest, AProtocolMaskOfZeroIsAnyProtocol) {
    EXPECT_EQ(ruleOf("@1.2.3.4/32 0.0.0.0/0 0 : 65535 0 : 65535 0x00/0x00").protocol, std::nullopt);
}

TEST(FilterSetTest, BitsBeyondTheLengthAreLeftOut) {
    EXPECT_EQ(ruleOf("@1.2.3.4/8 0.0.0.1/0 0 : 1 2 : 3 0x11/0xFF").source, prefix(0x01000000, 8));
}

TEST(FilterSetTest, EmptyLinesArePassedOver) {
    EXPECT_EQ(filterRulesFromText("\n \r\n").size(), 0u);
}

TEST(FilterSetTest, ALineThatIsNoRuleIsNamed) {
    Belmo::String const good = "@1.2.3.4/32 1.2.3.4/32 0 : 1 2 : 3 0x11/0xFF\n";
    for (auto const* bad :
         {"1.2.3.4/32 1.2.3.4/32 0 : 1 2 : 3 0x11/0xFF", "@1.2.3/32 1.2.3.4/32 0 : 1 2 : 3 0x11/0xFF",
          "@1.2.3.256/32 1.2.3.4/32 0 : 1 2 : 3 0x11/0xFF", "@1.2.3.4/33 1.2.3.4/32 0 : 1 2 : 3 0x11/0xFF",
          "@1.2.3.4/32 1.2.3.4/32 2 : 1 2 : 3 0x11/0xFF", "@1.2.3.4/32 1.2.3.4/32 0 : 65536 2 : 3 0x11/0xFF",
          "@1.2.3.4/32 1.2.3.4/32 0 : 1 2 : 3 17/0xFF", "@1.2.3.4/32 1.2.3.4/32 0 : 1 2 : 3 0x11/0xF0",
          "@1.2.3.4/32 1.2.3.4/32 0 : 1 2 : 3"}) {
        EXPECT_THROW(filterRulesFromText(good + bad), Belmo::RangeException) << bad;
    }
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { filterRulesFromText(good + "\nx"); }),
              "line 3: no filter rule \"@src/len dst/len sport : sport dport : dport proto/mask\"");
}

TEST(FilterSetTest, TheAddressesOfARuleChooseItsPhysicalTable) {
    ProtocolNumbers protocols;
    auto const tableOf = [&](char const* addresses) {
        return filterKeyOf(ruleOf(Belmo::String(addresses) + " 0 : 65535 53 : 53 0x11/0xFF"), 1, protocols)
            .physTableIdx;
    };
    EXPECT_EQ(tableOf("@0.0.0.0/0 1.2.3.4/32"), 0);
    EXPECT_EQ(tableOf("@0.0.0.0/0 0.0.0.0/0"), 0);
    EXPECT_EQ(tableOf("@1.2.3.4/32 0.0.0.0/0"), 1);
    EXPECT_EQ(tableOf("@1.2.3.4/32 1.2.3.4/32"), 2);
}

TEST(FilterSetTest, ProtocolAndPortChooseTheCombination) {
    ProtocolNumbers protocols;
    auto const combinationOf = [&](char const* addresses, char const* rest) {
        auto const fit = filterKeyOf(ruleOf(Belmo::String(addresses) + rest), 1, protocols);
        EXPECT_FALSE(fit.misfit);
        return fit.key.combination().value();
    };
    auto const* const protocolOnly = " 0 : 65535 0 : 65535 0x06/0xFF";
    auto const* const destination = " 0 : 65535 80 : 80 0x06/0xFF";
    auto const* const source = " 80 : 80 0 : 65535 0x06/0xFF";
    auto const* const nothing = " 0 : 65535 0 : 65535 0x00/0x00";
    U8 const wanted[3][4] = {{0, 1, 2, 3}, {8, 9, 10, 7}, {12, 13, 14, 11}};
    char const* const addresses[] = {"@0.0.0.0/0 1.2.3.4/32", "@1.2.3.4/32 0.0.0.0/0",
                                     "@1.2.3.4/32 1.2.3.4/32"};
    for (int table = 0; table < 3; ++table) {
        EXPECT_EQ(combinationOf(addresses[table], protocolOnly), wanted[table][0]);
        EXPECT_EQ(combinationOf(addresses[table], destination), wanted[table][1]);
        EXPECT_EQ(combinationOf(addresses[table], source), wanted[table][2]);
        EXPECT_EQ(combinationOf(addresses[table], nothing), wanted[table][3]);
    }
}

TEST(FilterSetTest, APortOfZeroIsAskedForAsSuch) {
    ProtocolNumbers protocols;
    auto const zero = filterKeyOf(ruleOf("@1.2.3.4/32 1.2.3.4/32 0 : 65535 0 : 0 0x06/0xFF"), 7, protocols);
    EXPECT_TRUE(zero.key.portIsZero());
    EXPECT_EQ(zero.key.aclId(), 7);
    auto const some = filterKeyOf(ruleOf("@1.2.3.4/32 1.2.3.4/32 0 : 65535 9 : 9 0x06/0xFF"), 7, protocols);
    EXPECT_FALSE(some.key.portIsZero());
    EXPECT_EQ(some.key.port(), 9);
}

TEST(FilterSetTest, WhatOneLookupCannotHoldIsAMisfit) {
    ProtocolNumbers protocols;
    auto const misfitOf = [&](char const* rest) {
        return filterKeyOf(ruleOf(Belmo::String("@1.2.3.4/32 1.2.3.4/32 ") + rest), 1, protocols).misfit;
    };
    EXPECT_EQ(misfitOf("0 : 65535 1024 : 65535 0x06/0xFF"), Misfit::portRange);
    EXPECT_EQ(misfitOf("1 : 2 80 : 80 0x06/0xFF"), Misfit::portRange);
    EXPECT_EQ(misfitOf("53 : 53 80 : 80 0x06/0xFF"), Misfit::twoPorts);
    EXPECT_EQ(misfitOf("0 : 65535 80 : 80 0x00/0x00"), Misfit::protocol);
    EXPECT_EQ(misfitOf("0 : 65535 80 : 80 0x06/0xFF"), std::nullopt);
}

TEST(FilterSetTest, ThereAreNumbersForFourteenProtocols) {
    ProtocolNumbers protocols;
    for (U8 protocol = 100; protocol < 114; ++protocol)
        EXPECT_EQ(protocols.of(protocol), NerioSwitch::HwProtocol(protocol - 99u));
    EXPECT_EQ(protocols.of(1), std::nullopt);
    EXPECT_EQ(protocols.of(101), NerioSwitch::HwProtocol(2));
}

TEST(TextFileTest, PackedFilesAreUnpacked) {
    TemporaryDirectory const directory;
    auto const path = directory.path() + "/packed.gz";
    Belmo::String const text(200000, 'x');
    auto* const file = gzopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
    gzclose(file);
    EXPECT_EQ(textOfFile(path), text);

    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 12);
    EXPECT_THROW(textOfFile(path), Belmo::ResourceException) << "a packed file that was cut short";
}

TEST(TextFileTest, OtherFilesAreReadAsTheyAre) {
    TemporaryDirectory const directory;
    auto const path = directory.path() + "/plain";
    std::ofstream(path) << "two\nlines\n";
    EXPECT_EQ(textOfFile(path), "two\nlines\n");
    EXPECT_THROW(textOfFile(directory.path() + "/none"), Belmo::ResourceException);
    EXPECT_THROW(textOfFile(directory.path()), Belmo::ResourceException);
}

}  // namespace

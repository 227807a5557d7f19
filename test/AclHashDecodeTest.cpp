#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "AclFixture.h"
#include "FailureText.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::AclHashKey;
using NerioSwitch::AclHashResult;
using NerioTest::bitsOf;
using NerioTest::packed;
using NerioTest::prefixOf;
using NerioTest::resultOf;
using NerioTest::ruleOf;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char const* badPrefix = "Lanvo::Prefix::validAsPrefix != true not allowed";

constexpr U8 physTableOf(U32 combination) {
    return combination <= 6 ? 0 : combination <= 10 ? 1 : combination <= 14 ? 2 : 5;
}

constexpr bool hasProtocol(U32 combination) {
    return combination != 3 && combination != 7 && combination != 11 && combination < 15;
}

constexpr bool tellsPort0(U32 combination) {
    for (U32 const one : {1u, 2u, 5u, 6u, 9u, 10u, 13u, 14u}) {
        if (one == combination) return true;
    }
    return false;
}

class AclHashDecodeTest : public NerioTest::AclChipTest {
protected:
    using Random = std::mt19937_64;

    static Lanvo::Prefix randomPrefix(Random& random, bool masked) {
        auto const length = static_cast<U8>(masked ? 1 + random() % 32 : 32);
        // The highest bit is set, so that the address is not zero.
        U32 const address = (0x80000000 | static_cast<U32>(random())) & Lanvo::Prefix::mask(length);
        return {Lanvo::IpAddr::fromHostOrder(address), length};
    }

    /** A key that its row can hold: what it does not look at is as a row reads back. */
    AclHashKey randomKey(Random& random, U32 combination) const {
        bool const masked = version() > 2;
        AclHashKey key;
        key.combinationIs(combination);
        if (physTableOf(combination) == 5) {
            return key.aclIdIs(0)
                .vrfIdIs(random() % 8)
                .keyFlagIs(random() % 2 == 0)
                .firstPrefixIs(random() % 4 == 0 ? Lanvo::Prefix() : randomPrefix(random, masked))
                .secondPrefixIs(randomPrefix(random, masked));
        }
        key.aclIdIs(static_cast<U8>(random() % 16));
        if (hasProtocol(combination)) key.protocolIs(1 + random() % 15);
        auto const port = static_cast<U16>(random() % 3 == 0 ? 0 : 1 + random() % 0xFFFE);
        key.portIs(port).portIsZeroIs(port == 0 && tellsPort0(combination) && random() % 2 == 0);
        if (physTableOf(combination) != 0) key.firstPrefixIs(randomPrefix(random, masked));
        if (physTableOf(combination) != 1) key.secondPrefixIs(randomPrefix(random, masked));
        return key;
    }

    /** A result that a row of that version can hold. */
    AclHashResult randomResult(Random& random, U32 combination) const {
        auto const priority = static_cast<U32>(1 + random() % 63);
        bool const flag = random() % 2 == 0;
        auto const counter = static_cast<U32>(random() % 0x1000);
        if (physTableOf(combination) == 5) return resultOf(ruleOf(priority, version() > 2 || flag));
        if (version() > 3) return resultOf(ruleOf(priority, flag, counter));
        return resultOf(ruleOf(priority, flag, counter & 0x7FF),
                        ruleOf(static_cast<U32>(random() % 16), random() % 2 == 0));
    }

    void expectSame(AclHashKey const& key, AclHashResult const& result) {
        expectDecoded(key, result, key, result);
    }

    /** What goes in as `key` and `result` reads back as `keyBack` and `resultBack`. */
    void expectDecoded(AclHashKey const& key, AclHashResult const& result, AclHashKey const& keyBack,
                       AclHashResult const& resultBack) {
        auto const item = decoded(row(key, result));
        ASSERT_TRUE(item->valid()) << Sorn::text(key);
        EXPECT_EQ(Sorn::text(item->key()), Sorn::text(keyBack)) << "of " << Sorn::text(key);
        EXPECT_EQ(Sorn::text(item->result()), Sorn::text(resultBack)) << "of " << Sorn::text(result);
        EXPECT_EQ(table().cachedItem(keyBack), item);
        table().cachedItemDel(keyBack);
    }

    void expectEmpty(Words const& words) {
        auto const item = decoded(words);
        EXPECT_FALSE(item->valid());
        EXPECT_EQ(item->key(), AclHashKey());
        EXPECT_EQ(table().cachedItems(), 0u);
    }

    std::string failureOfRow(Words const& words) {
        return failureOf<Belmo::RangeException>([&] { decoded(words); });
    }

    /** A key of `combination` that is as plain as can be. */
    static AclHashKey plainKey(U32 combination) {
        AclHashKey key = AclHashKey().combinationIs(combination);
        U8 const physTableIdx = physTableOf(combination);
        key.aclIdIs(physTableIdx == 5 ? 0 : 3);
        if (hasProtocol(combination)) key.protocolIs(6);
        if (physTableIdx == 5) key.vrfIdIs(2);
        if (physTableIdx != 0) key.firstPrefixIs(prefixOf({10, 0, 0, 1}, 32));
        if (physTableIdx != 1) key.secondPrefixIs(prefixOf({10, 0, 0, 2}, 32));
        return key;
    }
};

using AclHashDecodeVersion2Test = AclHashDecodeTest;
using AclHashDecodeUntilVersion3Test = AclHashDecodeTest;
using AclHashDecodeSinceVersion3Test = AclHashDecodeTest;
using AclHashDecodeSinceVersion4Test = AclHashDecodeTest;

INSTANTIATE_TEST_SUITE_P(, AclHashDecodeTest, testing::ValuesIn(NerioTest::aclChips()),
                         NerioTest::aclChipName);
INSTANTIATE_TEST_SUITE_P(, AclHashDecodeVersion2Test, testing::ValuesIn(NerioTest::aclChips(2, 2)),
                         NerioTest::aclChipName);
INSTANTIATE_TEST_SUITE_P(, AclHashDecodeUntilVersion3Test, testing::ValuesIn(NerioTest::aclChips(2, 3)),
                         NerioTest::aclChipName);
INSTANTIATE_TEST_SUITE_P(, AclHashDecodeSinceVersion3Test, testing::ValuesIn(NerioTest::aclChips(3)),
                         NerioTest::aclChipName);
INSTANTIATE_TEST_SUITE_P(, AclHashDecodeSinceVersion4Test, testing::ValuesIn(NerioTest::aclChips(4)),
                         NerioTest::aclChipName);

TEST_P(AclHashDecodeTest, ReadsBackWhatWasWritten) {
    Random random(version());
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2, 5}) {
        startTable(physTableIdx);
        for (U32 combination = 0; combination <= 18; ++combination) {
            if (physTableOf(combination) != physTableIdx) continue;
            for (int i = 0; i < 200; ++i)
                expectSame(randomKey(random, combination), randomResult(random, combination));
        }
    }
}

TEST_P(AclHashDecodeSinceVersion4Test, ARangeComesBackInTheRuleAndInTheKey) {
    Random random(version());
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2}) {
        startTable(physTableIdx);
        U32 const combination = physTableIdx == 0 ? 1 : physTableIdx == 1 ? 8 : 14;
        for (U32 rangeId = 0; rangeId < 8; ++rangeId) {
            auto const key = randomKey(random, combination);
            auto const result = resultOf(ruleOf(7, true, 0xABC, rangeId));
            expectDecoded(key, result, AclHashKey(key).rangeIdIs(rangeId), result);
        }
    }
}

TEST_P(AclHashDecodeUntilVersion3Test, BeforeVersion4RangesAreLostInRuleAndKey) {
    startTable(0);
    auto const key = plainKey(1);
    expectDecoded(AclHashKey(key).rangeIdIs(3), resultOf(ruleOf(7, true, 1, 3), ruleOf(8, true, 2, 4)), key,
                  resultOf(ruleOf(7, true, 1), ruleOf(8, true)));
}

TEST_P(AclHashDecodeTest, TheCountersTopBitIsLostBeforeVersion4) {
    startTable(1);
    auto const counterBack = [&](U32 counter) {
        auto const item = decoded(row(plainKey(8), resultOf(ruleOf(7, true, counter))));
        return item->result().rule(0).counter().value();
    };
    for (U32 const counter : {0u, 0x7FFu, 0x800u, 0xFFFu})
        EXPECT_EQ(counterBack(counter), version() < 4 ? counter & 0x7FF : counter);
}

TEST_P(AclHashDecodeUntilVersion3Test, BeforeVersion4TheBitBehindTheCounterIsReadThoughNeverWritten) {
    startTable(0);
    auto words = row(plainKey(1), resultOf(ruleOf(7, true, 5)));
    U32 const bit = (version() == 2 ? 47u : 49u) + (single() ? 0 : 1) + 23;
    words[bit / 32] |= 1u << bit % 32;
    EXPECT_EQ(decoded(words)->result().rule(0).counter(), 0x805);
}

TEST_P(AclHashDecodeTest, SinceVersion4OnlyTheFirstChainIsKept) {
    startTable(2);
    auto const result = resultOf(ruleOf(7, true, 5), ruleOf(9, true, 3, 2));
    expectDecoded(
        plainKey(13), result, plainKey(13),
        version() < 4 ? resultOf(ruleOf(7, true, 5), ruleOf(9, true)) : resultOf(ruleOf(7, true, 5)));
}

TEST_P(AclHashDecodeUntilVersion3Test, ASecondPriorityAbove15ComesBackAsAnother) {
    startTable(0);
    for (auto const& [priority, back] : {std::pair{15u, 15u}, {16u, 0u}, {17u, 1u}, {63u, 15u}}) {
        expectDecoded(plainKey(1), resultOf(ruleOf(7), ruleOf(priority)), plainKey(1),
                      resultOf(ruleOf(7), ruleOf(back)));
    }
}

TEST_P(AclHashDecodeTest, Table5AlwaysReadsItsFlagAsSetSinceVersion3) {
    startTable(5);
    for (bool const flag : {false, true}) {
        expectDecoded(plainKey(16), resultOf(ruleOf(7, flag, 0xABC, 3), ruleOf(9, true)), plainKey(16),
                      resultOf(ruleOf(7, version() > 2 || flag)));
    }
}

TEST_P(AclHashDecodeTest, ARuleWithoutPriorityReadsAsOneWithRange0SinceVersion4) {
    startTable(0);
    auto const none = resultOf(ruleOf(0, true, 0x123));
    if (version() < 4) {
        expectSame(plainKey(1), none);
    } else {
        expectDecoded(plainKey(1), none, AclHashKey(plainKey(1)).rangeIdIs(0),
                      resultOf(ruleOf(0, false, 0, 0)));
    }
    expectDecoded(plainKey(1), {}, version() < 4 ? plainKey(1) : plainKey(1).rangeIdIs(0),
                  version() < 4 ? AclHashResult() : resultOf(ruleOf(0, false, 0, 0)));
}

TEST_P(AclHashDecodeTest, CombinationsWithoutAProtocolReadItAs0) {
    for (U32 const combination : {3u, 7u, 11u}) {
        startTable(physTableOf(combination));
        auto const key = plainKey(combination);
        expectDecoded(AclHashKey(key).protocolIs(9), resultOf(ruleOf(1)), key, resultOf(ruleOf(1)));
    }
}

TEST_P(AclHashDecodeTest, AKeyOfProtocol0ReadsAsAnEmptyRow) {
    for (U32 const combination : {0u, 8u, 12u}) {
        startTable(physTableOf(combination));
        auto const words = row(plainKey(combination).protocolIs(0), resultOf(ruleOf(1)));
        EXPECT_NE(words[0], 0u) << "though it was written";
        expectEmpty(words);
    }
}

TEST_P(AclHashDecodeTest, AnyPortAndPort0AreToldApartWhereTheCombinationDoes) {
    startTable(0);
    auto const key = plainKey(1);
    expectSame(key, resultOf(ruleOf(1)));
    expectSame(AclHashKey(key).portIsZeroIs(true), resultOf(ruleOf(1)));
    expectDecoded(AclHashKey(key).portIs(0xFFFF), resultOf(ruleOf(1)), key, resultOf(ruleOf(1)));
    expectDecoded(AclHashKey(plainKey(4)).portIsZeroIs(true), resultOf(ruleOf(1)), plainKey(4),
                  resultOf(ruleOf(1)));
}

TEST_P(AclHashDecodeTest, APort0InARowOfAnotherCombinationIsAnyPort) {
    startTable(0);
    auto words = row(plainKey(4), resultOf(ruleOf(1)));
    U32 const first = single() ? 43 - 12 : 43 - 11;
    for (U32 bit = first; bit < first + 16; ++bit)
        words[bit / 32] &= ~(1u << bit % 32);
    EXPECT_EQ(Sorn::text(decoded(words)->key()), Sorn::text(plainKey(4)));
}

TEST_P(AclHashDecodeTest, AnAddressOfZeroReadsBackByItsMaskType) {
    startTable(2);
    for (U8 length = 0; length <= 32; ++length) {
        auto const key = plainKey(13).firstPrefixIs(prefixOf({0, 0, 0, 0}, length));
        auto const back = static_cast<U8>(version() == 2 ? 32
                                          : length <= 26 ? 0
                                          : length <= 30 ? 27
                                                         : length);
        expectDecoded(key, resultOf(ruleOf(1)), AclHashKey(key).firstPrefixIs(prefixOf({0, 0, 0, 0}, back)),
                      resultOf(ruleOf(1)));
    }
    auto const null = plainKey(13).firstPrefixIs(Lanvo::Prefix::null());
    expectDecoded(null, resultOf(ruleOf(1)), AclHashKey(null).firstPrefixIs(prefixOf({0, 0, 0, 0}, 32)),
                  resultOf(ruleOf(1)));
}

TEST_P(AclHashDecodeTest, AnAbsentAddressOfTable5IsTheDefaultPrefixInVersion2) {
    startTable(5);
    auto const result = resultOf(ruleOf(1, true));
    for (U8 const length : std::initializer_list<U8>{0, 32}) {
        auto const zero = prefixOf({0, 0, 0, 0}, length);
        auto const back = version() == 2 ? Lanvo::Prefix() : zero;
        auto const noFirst = plainKey(17).firstPrefixIs(zero);
        expectDecoded(noFirst, result, AclHashKey(noFirst).firstPrefixIs(back), result);
        auto const noSecond = plainKey(17).secondPrefixIs(zero);
        expectDecoded(noSecond, result, AclHashKey(noSecond).secondPrefixIs(back), result);
    }
}

TEST_P(AclHashDecodeVersion2Test, WithoutMaskTypesEveryAddressIsAHost) {
    startTable(2);
    auto const key = plainKey(13).firstPrefixIs(prefixOf({10, 0, 0, 0}, 8));
    expectDecoded(key, resultOf(ruleOf(1)), AclHashKey(key).firstPrefixIs(prefixOf({10, 0, 0, 0}, 32)),
                  resultOf(ruleOf(1)));
}

TEST_P(AclHashDecodeTest, WhatAPhysicalTableDoesNotLookAtReadsAsItsDefault) {
    auto const full = [](U32 combination) {
        return plainKey(combination)
            .firstPrefixIs(prefixOf({10, 0, 0, 1}, 32))
            .secondPrefixIs(prefixOf({10, 0, 0, 2}, 32))
            .aclIdIs(7)
            .vrfIdIs(5)
            .protocolIs(4)
            .portIs(80)
            .keyFlagIs(true);
    };
    auto const result = resultOf(ruleOf(1, true));
    startTable(0);
    expectDecoded(full(1), result, full(1).firstPrefixIs({}).vrfIdIs(128).keyFlagIs(false), result);
    startTable(1);
    expectDecoded(full(8), result, full(8).secondPrefixIs({}).vrfIdIs(128).keyFlagIs(false), result);
    startTable(2);
    expectDecoded(full(13), result, full(13).vrfIdIs(128).keyFlagIs(false), result);
    startTable(5);
    expectDecoded(full(16), result, full(16).aclIdIs(0).protocolIs(0).portIs(0), result);
    expectDecoded(full(16).vrfIdIs(128), result, full(16).aclIdIs(0).protocolIs(0).portIs(0).vrfIdIs(0),
                  result);
}

TEST_P(AclHashDecodeTest, RowsThatHoldNothingAreEmpty) {
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2, 5}) {
        startTable(physTableIdx);
        expectEmpty({});
        expectEmpty(row(AclHashKey(), {}));
        shadow().drop(5);
        auto const missing = helper().decodeHwEntry(5);
        ASSERT_NE(missing, nullptr);
        EXPECT_FALSE(missing->valid());
        shadow().store(5, {});
        EXPECT_FALSE(helper().decodeHwEntry(5)->valid()) << "a row without words";
    }
}

TEST_P(AclHashDecodeTest, ACorruptRowIsReportedAndTakenAsEmpty) {
    startTable(0);
    shadow().corrupt(5);
    auto const before = shadow().corruptionsDetected();
    EXPECT_FALSE(helper().decodeHwEntry(5)->valid());
    EXPECT_EQ(shadow().corruptionsDetected(), before + 1);
}

TEST_P(AclHashDecodeTest, Table5WithTwoAddressesOfAllOnesOrZeroIsEmpty) {
    startTable(5);
    auto words = row(plainKey(16).firstPrefixIs({}), resultOf(ruleOf(1)));
    U32 const second = 38 - (single() ? 12 : 11);
    for (U32 bit = second; bit < second + 32; ++bit)
        words[bit / 32] |= 1u << bit % 32;
    expectEmpty(words);
    for (U32 bit = second; bit < second + 32; ++bit)
        words[bit / 32] &= ~(1u << bit % 32);
    expectEmpty(words);
}

TEST_P(AclHashDecodeTest, TheCombinationBehindTheLastOfTable0IsTakenAsTheFirstOfTable1) {
    startTable(0);
    auto words = row(plainKey(6), resultOf(ruleOf(1)));
    words[6] |= 7u << 4;
    EXPECT_EQ(decoded(words)->key().combination(), 7);
}

TEST_P(AclHashDecodeTest, TheLastCombinationOfTable5IsTheInvalidOne) {
    startTable(5);
    expectSame(plainKey(18), resultOf(ruleOf(1, true)));
}

TEST_P(AclHashDecodeSinceVersion3Test, AddressBitsBeyondTheLengthAreRefused) {
    startTable(1);
    U32 const address = 6;
    U32 const maskType = 58;
    // The address and mask type as they stand in the packed key, its low bits in the shadow word.
    auto const words = [&](U32 stored, U32 type) {
        auto const key = packed(
            3,
            {{0, 4, 3}, {4, 2, 1}, {address, 32, stored}, {38, 4, 6}, {42, 16, 0xFFFF}, {maskType, 2, type}});
        U32 const implied = single() ? 12 : 11;
        auto const row = packed(8, bitsOf(key, implied, 59));
        Words result{};
        std::copy(row.begin(), row.end(), result.begin());
        result[6] = key[0] & ((1u << implied) - 1);
        return result;
    };
    EXPECT_EQ(failureOfRow(words(0x0A000108, 3)), badPrefix) << "10.0.1.0 with 8 bits";
    EXPECT_EQ(failureOfRow(words(0x0A000004, 2)), badPrefix) << "10.0.0.4 with 27 bits";
    EXPECT_EQ(failureOfRow(words(0x0A000001, 1)), badPrefix) << "10.0.0.1 with 31 bits";
    EXPECT_EQ(failureOfRow(words(0x0A000008, 3)), "");
    EXPECT_EQ(failureOfRow(words(0x0A000003, 2)), "");
    EXPECT_EQ(failureOfRow(words(0x0A000001, 0)), "");
    EXPECT_EQ(decoded(words(0x0A00001C, 3))->key().firstPrefix(), prefixOf({10, 0, 0, 0}, 28))
        << "a length that the encoder folds in another way";
}

TEST_P(AclHashDecodeTest, AnyOtherRowReadsAsSomeKey) {
    Random random(version());
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2, 5}) {
        startTable(physTableIdx);
        for (int i = 0; i < 2000; ++i) {
            Words words{};
            for (U32& word : std::span(words).first(7))
                word = static_cast<U32>(random());
            auto const failure = failureOfRow(words);
            EXPECT_TRUE(failure.empty() || failure == badPrefix) << failure;
            if (version() == 2) {
                EXPECT_EQ(failure, "");
            }
        }
    }
}

TEST_P(AclHashDecodeTest, TracesWhatItReads) {
    startTable(0);
    auto const words = row(plainKey(1), resultOf(ruleOf(1)));
    NerioTest::TraceCapture const trace("NerioTableAclHashes", 9);
    decoded(words);
    EXPECT_THAT(trace.lines(), Contains(AllOf(StartsWith("Decoded Entry: "), HasSubstr("10.0.0.2/32"),
                                              HasSubstr("priority=1"))));
}

class AclHashDecodeDeathTest : public NerioTest::AclTableFixture {};

TEST_F(AclHashDecodeDeathTest, OtherPhysicalTablesHaveNoLayout) {
    for (U8 const physTableIdx : std::initializer_list<U8>{3, 4, 6, 7}) {
        startTable(physTableIdx);
        EXPECT_DEATH(helper().decodeHwEntry(0),
                     "invalid ACL hashTableId " + std::to_string(physTableIdx) + "[^0-9]");
    }
}

}  // namespace

// The numbers, keys and results of address translation, and their text forms.
#include <gtest/gtest.h>
#include <set>

#include "Sorn/Text.h"

#include "FailureText.h"
#include "NatFixture.h"

namespace {

using namespace NerioSwitchTable;
using Belmo::RangeException;
using NerioSwitch::L3LagIndex;
using NerioSwitch::NatL4Proto;
using NerioSwitch::NatProfileId;
using NerioSwitch::NatSessionId;
using NerioSwitch::NatType;
using NerioSwitch::RewriteIndex;
using NerioSwitch::VlanGroupId;
using NerioTest::ip;

template <class Value>
Value parsed(std::string const& text) {
    Sorn::CharRange range(text);
    Value value(range);
    range.expectEnd();
    return value;
}

/** The default order of two values and what `operator<=>` makes of them. */
template <class Value>
void expectLess(Value const& less, Value const& more) {
    EXPECT_TRUE(less < more) << Sorn::text(less) << " " << Sorn::text(more);
    EXPECT_TRUE(more > less);
    EXPECT_FALSE(less == more);
    EXPECT_NE(less.hash(0), more.hash(0));
}

TEST(NatNumberTest, HaveTheirRangesAndDefaults) {
    EXPECT_EQ(NatSessionId().value(), 0x20000u);
    EXPECT_EQ(NatSessionId::null, 0x20000u);
    EXPECT_EQ(NatSessionId(0x20000), NatSessionId());
    EXPECT_EQ(failureOf<RangeException>([] { NatSessionId(0x20001); }),
              "NerioSwitch::NatSessionId::value < NerioSwitch::NatSessionId::min or > "
              "NerioSwitch::NatSessionId::null not allowed");
    EXPECT_EQ(NatProfileId().value(), 0);
    EXPECT_EQ(NatProfileId(64).value(), 64);
    EXPECT_EQ(failureOf<RangeException>([] { NatProfileId(65); }),
              "NerioSwitch::NatProfileId::value < NerioSwitch::NatProfileId::reserved or > "
              "NerioSwitch::NatProfileId::null not allowed");
    EXPECT_EQ(L3LagIndex(63).value(), U16{L3LagIndex::mcastSnat});
    EXPECT_EQ(failureOf<RangeException>([] { L3LagIndex(64); }),
              "NerioSwitch::L3LagIndex::value < NerioSwitch::L3LagIndex::min or > "
              "NerioSwitch::L3LagIndex::mcastSnat not allowed");
    EXPECT_EQ(VlanGroupId().value(), 17);
    EXPECT_EQ(failureOf<RangeException>([] { VlanGroupId(18); }),
              "NerioSwitch::VlanGroupId::value < NerioSwitch::VlanGroupId::min or > "
              "NerioSwitch::VlanGroupId::null not allowed");
    EXPECT_EQ(NatType(255).value(), 255);
    EXPECT_EQ(NatL4Proto(255).value(), 255);
}

TEST(NatNumberTest, ARewriteIndexIsAKindAndANumber) {
    static_assert(sizeof(RewriteIndex) == 2);
    RewriteIndex const plain(5);
    EXPECT_EQ(plain.kind(), 0);
    EXPECT_EQ(plain.value(), 5);
    EXPECT_EQ(Sorn::text(plain), "5");
    auto const other = RewriteIndex(5).kindIs(2);
    EXPECT_NE(other, plain);
    EXPECT_LT(plain, other);
    EXPECT_NE(other.hash(0), plain.hash(0));
    EXPECT_EQ(Sorn::text(other), "2:5");
    for (auto const& index : {plain, other, RewriteIndex(255).kindIs(255)}) {
        auto const text = Sorn::text(index);
        Sorn::CharRange range(text);
        EXPECT_EQ(Sorn::parse<RewriteIndex>(range), index);
        EXPECT_NO_THROW(range.expectEnd());
    }
    EXPECT_THROW(RewriteIndex(256), RangeException);
}

NatMatchKey anyKey() {
    return NatMatchKey()
        .natTypeIs(3)
        .sipIs(ip(10, 0, 0, 1))
        .sportIs(80)
        .dipIs(ip(192, 0, 2, 1))
        .dportIs(443)
        .filterPfxIs({ip(172, 16, 0, 0), 12})
        .ingressProfileIdIs(7);
}

TEST(NatMatchKeyTest, TheDefaultKeyHasNoFilter) {
    NatMatchKey const key;
    EXPECT_EQ(key.natType(), NatType(0));
    EXPECT_EQ(key.filterPfx().len(), 255);
    EXPECT_EQ(key, NatMatchKey().filterPfxIs(Lanvo::Prefix::null()));
    EXPECT_NE(key, NatMatchKey().filterPfxIs({}));
}

TEST(NatMatchKeyTest, ThePrintedOrderIsNotTheDeclaredOne) {
    EXPECT_EQ(anyKey().stringValue(),
              "natType=3 dip=192.0.2.1 dport=443 sip=10.0.0.1 sport=80 ingressProfileId=7 "
              "filterPfx=172.16.0.0/12");
    EXPECT_EQ(NatMatchKey().stringValue(),
              "natType=0 dip=0.0.0.0 dport=0 sip=0.0.0.0 sport=0 ingressProfileId=0 filterPfx=null");
}

TEST(NatMatchKeyTest, IsReadInDeclaredOrder) {
    EXPECT_EQ(parsed<NatMatchKey>("NerioSwitchTable::NatMatchKey(natType=3,sip=10.0.0.1,sport=80,"
                                  "dip=192.0.2.1,dport=443,filterPfx=172.16.0.0/12,ingressProfileId=7)"),
              anyKey());
    EXPECT_EQ(parsed<NatMatchKey>(Sorn::text(NatMatchKey())), NatMatchKey());
    EXPECT_THROW(parsed<NatMatchKey>("NerioSwitchTable::NatMatchKey(sip=10.0.0.1)"),
                 Belmo::DeserializationException);
}

TEST(NatMatchKeyTest, AFailureToReadNamesTheAttribute) {
    auto const failure = [](std::string const& filter) {
        return failureOf<Belmo::DeserializationException>([&] {
            parsed<NatMatchKey>(
                "NerioSwitchTable::NatMatchKey(natType=3,sip=10.0.0.1,sport=80,dip=192.0.2.1,"
                "dport=443,filterPfx=" +
                filter + ",ingressProfileId=7)");
        });
    };
    EXPECT_EQ(failure("172.16.0.1/12"),
              "NerioSwitchTable::NatMatchKey::filterPfx: "
              "Lanvo::Prefix::validAsPrefix != true not allowed");
    EXPECT_EQ(failure("null"), "");
}

TEST(NatMatchKeyTest, ComparesAndHashesByItsAttributesInDeclaredOrder) {
    NatMatchKey const key = anyKey();
    EXPECT_TRUE(key.isEq(anyKey()));
    EXPECT_EQ(key.hash(7), anyKey().hash(7));
    EXPECT_NE(key.hash(7), key.hash(8));
    // Each of these is more in its own attribute, and less in all behind it.
    std::vector<NatMatchKey> const ascending{
        key,
        NatMatchKey(key).ingressProfileIdIs(8),
        NatMatchKey(key).filterPfxIs({ip(172, 16, 0, 0), 13}).ingressProfileIdIs(0),
        NatMatchKey(key).filterPfxIs({ip(172, 32, 0, 0), 11}).ingressProfileIdIs(0),
        NatMatchKey(key).dportIs(444).filterPfxIs({}),
        NatMatchKey(key).dipIs(ip(192, 0, 2, 2)).dportIs(0),
        NatMatchKey(key).sportIs(81).dipIs({}),
        NatMatchKey(key).sipIs(ip(11, 0, 0, 0)).sportIs(0),
        NatMatchKey(key).natTypeIs(4).sipIs({})};
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j)
            expectLess(ascending[j], ascending[i]);
        EXPECT_EQ(ascending[i].isEq(key), i == 0);
    }
}

TEST(NatMatchKeyTest, KeysOfOtherProfilesAreOthersAndHashApart) {
    std::set<U32> hashes;
    for (U16 profile = 0; profile < 64; ++profile) {
        EXPECT_NE(NatMatchKey(anyKey()).ingressProfileIdIs(profile), NatMatchKey().ingressProfileIdIs(64));
        hashes.insert(anyKey().ingressProfileIdIs(profile).hash(0));
    }
    EXPECT_EQ(hashes.size(), 64u);
}

TEST(NatMatchKeyTest, APrefixHashesByItsAddressAndItsLength) {
    // ((l ^ a) * 32767 - 1, and so on, worked out by hand for 0.0.0.0/0: x = 0xFFFFFFFF.
    U32 x = 0xFFFFFFFF;
    x = (x ^ x >> 12) * 5;
    x = (x >> 4 ^ x) * 2057;
    x ^= x >> 16;
    EXPECT_EQ(NatMatchKey().filterPfxIs({}).hashNumbers()[2], U64{x} << 16);
    std::set<U64> numbers;
    for (U8 length = 0; length <= 32; ++length)
        numbers.insert(NatMatchKey().filterPfxIs({ip(0, 0, 0, 0), length}).hashNumbers()[2]);
    EXPECT_EQ(numbers.size(), 33u);
}

TEST(NatMatchStatusTest, IsReadByKeyStatusAndLastHit) {
    NatMatchEntryStatus const status;
    EXPECT_EQ(status.key(), NatMatchKey());
    EXPECT_EQ(status.status(), NerioSwitchApi::EntryProgrammedStatus::entryProgrammed);
    EXPECT_TRUE(status.lastHit().isNever());
    auto const hit = NatMatchEntryStatus().keyIs(anyKey()).lastHitIs(Belmo::Duration(2.5));
    EXPECT_EQ(parsed<NatMatchEntryStatus>(Sorn::text(hit)), hit);
    EXPECT_EQ(Sorn::text(hit).substr(0, 42), "NerioSwitchTable::NatMatchEntryStatus(key=");
    EXPECT_EQ(parsed<NatMatchEntryStatus>(Sorn::text(status)), status);
}

TEST(NatMatchResultTest, HasDefaultsAndATextForPeople) {
    EXPECT_EQ(NatMatchResult().stringValue(),
              "valid=0 proto=0 natSessionId=131072 useAcl=0 trapToCpu=0 l3LagIndex=57 rewriteIndex=0");
    EXPECT_EQ(NatDynMatchResult().stringValue(),
              "valid=0 proto=0 natSessionId=131072 trapToCpu=0 l3LagIndex=57 rewriteIndex=0");
    EXPECT_EQ(NatMatchResult()
                  .validIs(true)
                  .protoIs(3)
                  .natSessionIdIs(0x1FFFF)
                  .useAclIs(true)
                  .trapToCpuIs(true)
                  .l3LagIndexIs(63)
                  .rewriteIndexIs(9)
                  .stringValue(),
              "valid=1 proto=3 natSessionId=131071 useAcl=1 trapToCpu=1 l3LagIndex=63 rewriteIndex=9");
}

NatRewriteKey unicastKey() {
    return NatRewriteKey().isUnicastIs(true).natSessionIdIs(5).natProfileIdIs(3).secondTnatIs(true);
}

NatRewriteKey multicastKey() {
    return NatRewriteKey().natSessionIdIs(5).oddPortIs(true).vlanGroupIdIs(4).vlanGroupMemberIdxIs(6);
}

TEST(NatRewriteKeyTest, HasDefaultsAndATextForEachForm) {
    NatRewriteKey const key;
    EXPECT_EQ(key.natSessionId(), NatSessionId());
    EXPECT_EQ(key.natProfileId(), NatProfileId(0));
    EXPECT_EQ(key.vlanGroupId(), VlanGroupId(17));
    EXPECT_EQ(key.vlanGroupMemberIdx(), NerioSwitch::GroupVlanIndex(0));
    EXPECT_EQ(unicastKey().stringValue(), "natSessionId=5 natEgressProfileId=3 oddPort=0 secondTnat=1");
    EXPECT_EQ(multicastKey().stringValue(), "natSessionId=5 vlanGroupId=4 memberIdx=6 oddPort=1");
}

TEST(NatRewriteKeyTest, IsReadInDeclaredOrder) {
    EXPECT_EQ(
        parsed<NatRewriteKey>("NerioSwitchTable::NatRewriteKey(isUnicast=true,natSessionId=5,oddPort=false,"
                              "natProfileId=3,secondTnat=true,vlanGroupId=17,vlanGroupMemberIdx=0)"),
        unicastKey());
    EXPECT_EQ(parsed<NatRewriteKey>(Sorn::text(multicastKey())), multicastKey());
    EXPECT_EQ(failureOf<Belmo::DeserializationException>([] {
                  parsed<NatRewriteKey>("NerioSwitchTable::NatRewriteKey(isUnicast=true,natSessionId=131073");
              }),
              "NerioSwitchTable::NatRewriteKey::natSessionId: NerioSwitch::NatSessionId::value < "
              "NerioSwitch::NatSessionId::min or > NerioSwitch::NatSessionId::null not allowed");
}

TEST(NatRewriteKeyTest, ComparesAndHashesByAllAttributesThoseOfTheOtherFormAsWell) {
    NatRewriteKey const key = NatRewriteKey().natSessionIdIs(5).vlanGroupIdIs(4).natProfileIdIs(2);
    std::vector<NatRewriteKey> const ascending{key,
                                               NatRewriteKey(key).vlanGroupMemberIdxIs(1),
                                               NatRewriteKey(key).vlanGroupIdIs(5),
                                               NatRewriteKey(key).secondTnatIs(true).vlanGroupIdIs(0),
                                               NatRewriteKey(key).natProfileIdIs(3),
                                               NatRewriteKey(key).oddPortIs(true).natProfileIdIs(0),
                                               NatRewriteKey(key).natSessionIdIs(6),
                                               NatRewriteKey(key).isUnicastIs(true).natSessionIdIs(0)};
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j)
            expectLess(ascending[j], ascending[i]);
    }
}

TEST(NatRewriteResultTest, HasDefaultsAndATextForPeople) {
    EXPECT_EQ(NatRewriteResult().stringValue(), "valid=0 newIp=0.0.0.0 newPort=0 checksumCorrection=0");
    EXPECT_EQ(NatRewriteResult()
                  .validIs(true)
                  .newIpIs(ip(192, 0, 2, 7))
                  .newPortIs(65535)
                  .checksumCorrectionIs(0xABCD)
                  .stringValue(),
              "valid=1 newIp=192.0.2.7 newPort=65535 checksumCorrection=43981");
    EXPECT_EQ(NatRewriteEntryStatus().key(), NatRewriteKey());
    EXPECT_TRUE(NatRewriteEntryStatus().lastHit().isNever());
}

}  // namespace

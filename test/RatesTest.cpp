// Rates in words, as entries, and as the chip lets them through.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "NerioSwitchApi/TableFramework.h"

#include "RandomValue.h"
#include "agent/Rates.h"
#include "agent/ValueJson.h"
#include "chip/RateLimit.h"

namespace {

using namespace NerioSwitchTable;
using Agent::CoppEntries;
using Agent::coppEntries;
using Agent::CpuLimits;
using Agent::cpuLimits;
using Agent::policedClasses;
using Agent::Rate;
using Agent::StormEntries;
using Agent::stormEntries;
using Agent::StormLimits;
using Agent::stormLimits;
using Chip::StormTraffic;
using NerioSwitchApi::StartMode;
using NerioTest::below;
using NerioTest::Random;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr U64 second = 31250000;

Rate packets(U64 perSecond) {
    return Rate(perSecond);
}
Rate bits(U64 perSecond) {
    return Rate(perSecond, Rate::Unit::bits);
}
StormLimits broadcast(Rate const& rate) {
    return {rate, std::nullopt, std::nullopt};
}

template <class Call>
std::string failureOf(Call const& call) {
    try {
        call();
    } catch (Belmo::RangeException const& failure) {
        return failure.what();
    }
    return "no failure";
}

TEST(RateTest, TextsHaveTheLargestPrefixThatLeavesTheNumberWhole) {
    for (auto const& [rate, text] : {std::pair{packets(0), "0 pps"},
                                     {packets(1), "1 pps"},
                                     {packets(1500), "1500 pps"},
                                     {packets(20000), "20 kpps"},
                                     {bits(10000000), "10 Mbps"},
                                     {bits(100000000000), "100 Gbps"},
                                     {bits(3000000000000), "3 Tbps"},
                                     {bits(1000001), "1000001 bps"}}) {
        EXPECT_EQ(rate.text(), text);
        Sorn::CharRange range(rate.text());
        EXPECT_EQ(Rate::fromText(range), rate);
        EXPECT_TRUE(range.empty());
    }
}

TEST(RateTest, TextsReadWithAndWithoutABlank) {
    auto const parsed = [](std::string const& text) {
        return Agent::fromJson<Rate>(Agent::Json(text), Agent::Place());
    };
    EXPECT_EQ(parsed("1000000bps"), bits(1000000));
    EXPECT_EQ(parsed("1Mpps"), packets(1000000));
    EXPECT_EQ(parsed("0x10 kbps"), bits(16000));
    EXPECT_EQ(Agent::toJson(packets(2000)), Agent::Json("2 kpps"));
    for (auto const* wrong : {"", "pps", "1000", "1000 p", "1 mbps", "1 kkbps", "1 kbps ", "1.5 Mbps",
                              "-1 pps", "1  pps", "99999999999 Tbps"})
        EXPECT_THROW(parsed(wrong), Belmo::Exception) << wrong;
}

TEST(StormRatesTest, ARateThatFitsIntoASecondNeedsNoOtherInterval) {
    auto const entries = stormEntries(broadcast(packets(1000)));
    ASSERT_THAT(entries, SizeIs(1));
    auto const& entry = entries.at(StormControlClass::stormControlBcast);
    EXPECT_EQ(entry,
              StormControlEntry().enabledIs(true).intervalIs(31250000).scaleFactorIs(0).incrementIs(1000));
    EXPECT_EQ(entry.trueRate(), 1000);
    EXPECT_EQ(stormEntries(broadcast(packets(0x3FFFF))).at(StormControlClass::stormControlBcast).increment(),
              0x3FFFFu);
    EXPECT_THAT(stormEntries({}), IsEmpty());
}

TEST(StormRatesTest, AHigherRateShortensTheIntervalOfAllLimitsOfThePort) {
    auto const entries = stormEntries({packets(0x40000), packets(1000), std::nullopt});
    ASSERT_THAT(entries, SizeIs(3));
    EXPECT_EQ(entries.at(StormControlClass::stormControlInterval).interval(), 31250000u / 2);
    EXPECT_EQ(entries.at(StormControlClass::stormControlBcast).increment(), 0x20000u);
    EXPECT_EQ(entries.at(StormControlClass::stormControlAllUcast).increment(), 500u);
    EXPECT_EQ(entries.at(StormControlClass::stormControlAllUcast).trueRate(), 1000);
    // 148.8 million packets a second, as of 100 Gbit/s: 568 parts at least, and 625 has a whole number of
    // ticks.
    auto const fast = stormEntries(broadcast(packets(148800000)));
    EXPECT_EQ(fast.at(StormControlClass::stormControlInterval).interval(), 50000u);
    EXPECT_EQ(fast.at(StormControlClass::stormControlBcast).trueRate(), 148800000);
}

TEST(StormRatesTest, BitsTakeTheFinestPiecesThatFit) {
    auto const entryOf = [](U64 rate) {
        return stormEntries(broadcast(bits(rate))).at(StormControlClass::stormControlBcast);
    };
    EXPECT_EQ(entryOf(1).scaleFactor(), 1u);
    EXPECT_EQ(entryOf(1).increment(), 1u);
    EXPECT_EQ(entryOf(0x3FFFF).scaleFactor(), 1u);
    EXPECT_EQ(entryOf(0x40000).scaleFactor(), 2u);
    EXPECT_EQ(entryOf(0x40000).increment(), 0x8000u);
    EXPECT_EQ(entryOf(10000000).scaleFactor(), 3u);
    EXPECT_EQ(entryOf(10000000).increment(), 156250u);
    EXPECT_EQ(entryOf(60000000000).scaleFactor(), 7u);
    auto const fast = stormEntries(broadcast(bits(400000000000)));
    EXPECT_EQ(fast.at(StormControlClass::stormControlInterval).interval(), 31250000u / 8);
    EXPECT_EQ(fast.at(StormControlClass::stormControlBcast).scaleFactor(), 7u);
}

TEST(StormRatesTest, ALimitOfNothingIsNone) {
    EXPECT_EQ(failureOf([] { stormEntries(broadcast(packets(0))); }),
              "a limit of 0 pps is none that storm control has");
}

TEST(StormRatesTest, LimitsThatHaveNoIntervalInCommonAreRefused) {
    auto const low = [](U64 rate) { return StormLimits{packets(100000000), packets(rate), std::nullopt}; };
    // The interval is a part of 400.
    EXPECT_EQ(failureOf([&] { stormEntries(low(100)); }),
              "a limit of 100 pps does not fit into intervals of 78125 ticks");
    EXPECT_EQ(failureOf([&] { stormEntries(low(379)); }),
              "a limit of 379 pps does not fit into intervals of 78125 ticks")
        << "more than a twentieth off 400";
    EXPECT_EQ(stormLimits(stormEntries(low(381))).unicast, packets(400)) << "and less";
    EXPECT_THAT(failureOf([] { stormEntries(broadcast(packets(~U64{0}))); }),
                HasSubstr("does not fit into intervals of 1 ticks"));
}

TEST(StormRatesTest, LimitsComeBackFromTheEntriesThatHardwareGivesBack) {
    StormLimits const limits{packets(1000), bits(10000000), std::nullopt};
    EXPECT_EQ(stormLimits(stormEntries(limits)), limits);
    EXPECT_EQ(stormLimits({}), StormLimits());
    StormEntries back;
    for (auto const& [trafficClass, entry] : stormEntries(limits)) {
        StormControlEntryKey const key(NerioSwitch::ChipPortId(3), trafficClass);
        back[trafficClass] = StormControlEntry::fromHardwareValue(key, entry.toHardwareValue(trafficClass));
    }
    EXPECT_NE(back, stormEntries(limits)) << "an increment has more bits then";
    EXPECT_EQ(stormLimits(back), limits);
    back[StormControlClass::stormControlBcast].enabledIs(false);
    EXPECT_EQ(stormLimits(back).broadcast, std::nullopt);
}

/** Three limits that have about the same interval, with up to that many digits, of a unit each. */
StormLimits randomStormLimits(Random& random) {
    U64 const magnitude = U64{1} << (10 + below(random, 18));
    auto const rate = [&]() -> std::optional<Rate> {
        if (below(random, 4) == 0) return std::nullopt;
        return Rate(magnitude + below(random, magnitude),
                    below(random, 2) == 0 ? Rate::Unit::packets : Rate::Unit::bits);
    };
    return {rate(), rate(), rate()};
}

bool isNear(std::optional<Rate> const& one, std::optional<Rate> const& other, double tolerance) {
    if (!one || !other) return !one && !other;
    auto const wanted = static_cast<double>(one->perSecond());
    return one->unit() == other->unit() &&
           std::abs(wanted - static_cast<double>(other->perSecond())) <= wanted * tolerance;
}

std::optional<Rate> rateOf(Chip::RateLimit const& limit) {
    if (!limit.perSecond) return std::nullopt;
    return Rate(*limit.perSecond,
                limit.unit == Chip::RateLimit::Unit::packets ? Rate::Unit::packets : Rate::Unit::bits);
}

/** A chip of the default preset or another, with both tables of limiters. */
class LimiterSwitch {
public:
    explicit LimiterSwitch(Belmo::Ptr<NerioSwitch::ProfileInfo> profile) : profile_(std::move(profile)) {
        start(StartMode::cold);
    }

    void start(StartMode mode) {
        storm_.reset();
        copp_.reset();
        framework_ = std::make_unique<NerioSwitchApi::TableFramework>(profile_, chip_, shadows_);
        storm_ = stormControlTableFactory();
        copp_ = coppTableFactory("copp");
        framework_->tableIs(storm_, mode);
        framework_->tableIs(copp_, mode);
    }
    void limitsAre(U32 port, StormLimits const& limits) {
        for (auto const& each : enumerators(StormControlClass()))
            storm_->entryDel({NerioSwitch::ChipPortId(port), each.value});
        for (auto const& [trafficClass, entry] : stormEntries(limits))
            storm_->entryIs({NerioSwitch::ChipPortId(port), trafficClass}, entry);
    }
    /** What the software table says of a port. */
    StormLimits limits(U32 port) const {
        StormEntries entries;
        for (auto const& [key, entry] : storm_->entries()) {
            if (key.portId() == NerioSwitch::ChipPortId(port)) entries[key.trafficClass()] = entry;
        }
        return stormLimits(entries);
    }
    StormLimits limitsOnChip(U32 port) {
        return {rateOf(stormLimit(*chip_, *profile_, port, StormTraffic::broadcast)),
                rateOf(stormLimit(*chip_, *profile_, port, StormTraffic::unicast)),
                rateOf(stormLimit(*chip_, *profile_, port, StormTraffic::multicast))};
    }
    void limitsAre(CpuLimits const& limits) {
        for (auto const& [key, entry] : coppEntries(limits, *profile_))
            copp_->entryIs(key, entry);
    }
    CpuLimits limits() const {
        CoppEntries entries;
        for (auto const& [key, entry] : copp_->entries())
            entries[key] = entry;
        return cpuLimits(entries, *profile_);
    }
    Chip::RateLimit cpuLimitOnChip(std::optional<U32> pipeline, std::string_view limiter) {
        return cpuLimit(*chip_, *profile_, pipeline, limiter);
    }
    NerioSwitch::ProfileInfo const& profile() const { return *profile_; }
    Chip::SimulatedChip& chip() { return *chip_; }
    StormControlTable& storm() { return *storm_; }
    CoppTable& copp() { return *copp_; }

private:
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile_;
    Belmo::Ptr<Chip::SimulatedChip> chip_ = Chip::simulatedChip(*profile_);
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows_ = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework_;
    Belmo::Ptr<StormControlTable> storm_;
    Belmo::Ptr<CoppTable> copp_;
};

Belmo::Ptr<NerioSwitch::ProfileInfo> profileOf(NerioSwitch::ProfileHwApi const& hwApi, U16 pipelines = 2) {
    auto profile = NerioSwitch::profilePreset("default");
    profile->hwApi = hwApi;
    profile->numPipelines = pipelines;
    return profile;
}

TEST(StormLimitOnChipTest, ThePortLimitsWhatItsRegistersSay) {
    LimiterSwitch target(profileOf({6, 2}));
    EXPECT_EQ(target.limitsOnChip(51), StormLimits());
    auto const set = [&](char const* name, U32 word) {
        target.chip().write(target.chip().address(std::string("pipeline[1]/port[25]/") + name), word);
    };
    set("interval_period", 31250);
    set("broadcast_limit", 1u << 19 | 5);
    set("unicast_limit", 1u << 19 | 7u << 20 | 3);
    set("multicast_limit", 7u << 20 | 3);
    EXPECT_EQ(target.limitsOnChip(51),
              (StormLimits{packets(5000), bits(3ull * 262144 * 1000), std::nullopt}));
    EXPECT_EQ(target.limitsOnChip(50), StormLimits());
    set("broadcast_limit", 1u << 19 | 1u << 20 | 5);
    EXPECT_EQ(target.limitsOnChip(51).broadcast, bits(5000));
    set("broadcast_limit", 1u << 19);
    EXPECT_EQ(target.limitsOnChip(51).broadcast, packets(0));
    set("interval_period", 0);
    EXPECT_EQ(target.limitsOnChip(51).unicast, std::nullopt) << "its credit grows all the time";
    EXPECT_EQ(target.limitsOnChip(51).broadcast, packets(0)) << "and does not";
    EXPECT_THROW(target.limitsOnChip(52), Belmo::RangeException);
}

TEST(StormLimitOnChipTest, WhatIsAskedForIsWhatTheChipLetsThrough) {
    LimiterSwitch target(profileOf({6, 2}));
    Random random(20271);
    std::map<U32, StormLimits> wanted;
    for (int round = 0; round < 200; ++round) {
        U32 const port = static_cast<U32>(below(random, 52));
        wanted[port] = randomStormLimits(random);
        target.limitsAre(port, wanted[port]);
        if (round % 50 == 49) target.start(StartMode::warm);
    }
    for (auto const& [port, limits] : wanted) {
        SCOPED_TRACE(port);
        auto const onChip = target.limitsOnChip(port);
        auto const told = target.limits(port);
        for (auto const member : {&StormLimits::broadcast, &StormLimits::unicast, &StormLimits::multicast}) {
            EXPECT_TRUE(isNear(limits.*member, onChip.*member, 1.0 / 20));
            EXPECT_TRUE(isNear(told.*member, onChip.*member, 0.00001));
        }
    }
}

TEST(CoppRatesTest, ClassesFollowTheHardwareApi) {
    auto const classes = [](NerioSwitch::ProfileHwApi const& hwApi) {
        return policedClasses(*profileOf(hwApi));
    };
    EXPECT_THAT(classes({4, 0}), ElementsAre(CoppClass::reservedMac, CoppClass::igmp, CoppClass::linkLocal,
                                             CoppClass::l2Packet, CoppClass::macLearn));
    EXPECT_THAT(classes({5, 0}), SizeIs(10));
    EXPECT_THAT(classes({6, 0}), SizeIs(12));
    EXPECT_THAT(classes({6, 1}), SizeIs(14));
    EXPECT_THAT(classes({6, 2}), SizeIs(14));
}

TEST(CoppRatesTest, WithoutScaleFactorsALimitIsARawResult) {
    auto const entries = coppEntries({{CoppClass::igmp, packets(1000)}, {CoppClass::linkLocal, packets(0)}},
                                     *profileOf({5, 0}));
    ASSERT_THAT(entries, SizeIs(11));
    EXPECT_EQ(entries.at(0), CoppEntry().resultIs(31250000));
    EXPECT_EQ(entries.at(2), CoppEntry().resultIs(1000));
    EXPECT_EQ(entries.at(3), CoppEntry().resultIs(CoppEntry::filterAll));
    EXPECT_EQ(entries.at(14), CoppEntry().resultIs(CoppEntry::filterNone));
    EXPECT_FALSE(entries.contains(5)) << "no such class";
}

TEST(CoppRatesTest, WithScaleFactorsEveryClassIsSetSinceNoneIsOpenByItself) {
    auto const entries =
        coppEntries({{CoppClass::igmp, packets(1000)}, {CoppClass::ptp, bits(1000000)}}, *profileOf({6, 2}));
    ASSERT_THAT(entries, SizeIs(15));
    EXPECT_EQ(entries.at(0), CoppEntry().intervalIs(31250000));
    EXPECT_EQ(entries.at(2), CoppEntry().incrementIs(1000));
    EXPECT_EQ(entries.at(7), CoppEntry().incrementIs(125000).scaleFactorIs(2));
    EXPECT_EQ(entries.at(14), CoppEntry().incrementIs(0x3FFFF).scaleFactorIs(7));
}

TEST(CoppRatesTest, APipelinesShareIsNoLessThanTheSmallestIncrement) {
    for (auto const& [pipelines, least] : {std::pair{U16{1}, 12u}, {U16{2}, 19u}, {U16{3}, 24u}}) {
        auto const profile = profileOf({6, 2}, pipelines);
        auto const entryOf = [&](U64 rate) {
            return coppEntries({{CoppClass::igmp, packets(rate)}}, *profile);
        };
        EXPECT_EQ(entryOf(least).at(0).interval(), 31250000.f);
        EXPECT_EQ(entryOf(least).at(2).increment(), least);
        EXPECT_EQ(entryOf(least - 1).at(0).interval(), 62500000.f) << "two seconds";
        EXPECT_EQ(entryOf(least - 1).at(2).increment(), 2 * (least - 1));
        EXPECT_EQ(entryOf(least).at(2).toHardwareValue(2, false, pipelines, true), 12u);
        EXPECT_EQ(cpuLimits(entryOf(1), *profile).at(CoppClass::igmp), packets(1));
    }
}

TEST(CoppRatesTest, RefusalsSayWhy) {
    EXPECT_EQ(failureOf([] {
                  coppEntries({{CoppClass::mirror, packets(100)}}, *profileOf({6, 0}));
              }),
              "mirror is no class of traffic to the CPU that hardware API 6.0 has");
    EXPECT_EQ(failureOf([] {
                  coppEntries({{CoppClass::interval, packets(100)}}, *profileOf({6, 2}));
              }),
              "interval is no class of traffic to the CPU that hardware API 6.2 has");
    EXPECT_EQ(failureOf([] {
                  coppEntries({{CoppClass::igmp, bits(100000)}}, *profileOf({6, 1}));
              }),
              "a limit of 100 kbps is not for limiters that count packets alone");
    EXPECT_EQ(failureOf([] {
                  coppEntries({{CoppClass::igmp, packets(10)}, {CoppClass::ptp, packets(1000000)}},
                              *profileOf({6, 2}));
              }),
              "a limit of 10 pps does not fit into intervals of 7812500 ticks");
}

TEST(CoppRatesTest, WhatAStartLeavesIsNoLimitOrNothing) {
    for (auto const& [policed, limit] : cpuLimits({}, *profileOf({6, 1})))
        EXPECT_EQ(limit, std::nullopt) << Sorn::text(policed);
    for (auto const& [policed, limit] : cpuLimits({}, *profileOf({6, 2})))
        EXPECT_EQ(limit, packets(0)) << Sorn::text(policed);
}

TEST(CpuLimitOnChipTest, APipelineHasItsShareAndTheCpuTheWholeLimit) {
    for (auto const& hwApi : {NerioSwitch::ProfileHwApi(6, 1), NerioSwitch::ProfileHwApi(6, 2)}) {
        SCOPED_TRACE(hwApi.text());
        LimiterSwitch target(profileOf(hwApi));
        target.limitsAre({{CoppClass::igmp, packets(1000000)}, {CoppClass::others, packets(0)}});
        EXPECT_EQ(rateOf(target.cpuLimitOnChip(0, "igmp_limit")), packets(660000));
        EXPECT_EQ(rateOf(target.cpuLimitOnChip(1, "igmp_limit")), packets(660000));
        EXPECT_EQ(rateOf(target.cpuLimitOnChip(std::nullopt, "igmp_limit")), packets(1000000));
        EXPECT_EQ(rateOf(target.cpuLimitOnChip(std::nullopt, "default_limit")), packets(0));
        auto const open = rateOf(target.cpuLimitOnChip(std::nullopt, "ptp_limit"));
        // With scale factors no limit is the largest one that there is.
        EXPECT_EQ(open, hwApi < NerioSwitch::ProfileHwApi(6, 2)
                            ? std::nullopt
                            : std::optional(bits(0x3FFFFull * 262144 * 4)));
        EXPECT_THROW(target.cpuLimitOnChip(2, "igmp_limit"), NerioSwitchApi::UnknownRegisterException);
        EXPECT_THROW(target.cpuLimitOnChip(0, "no_limit"), NerioSwitchApi::UnknownRegisterException);
    }
}

TEST(CpuLimitOnChipTest, ADeletedLimitLetsNothingThrough) {
    LimiterSwitch target(profileOf({6, 2}));
    target.limitsAre(CpuLimits());
    target.copp().entryDel(2);
    EXPECT_EQ(rateOf(target.cpuLimitOnChip(std::nullopt, "igmp_limit")), packets(0));
    EXPECT_EQ(rateOf(target.cpuLimitOnChip(0, "igmp_limit")), packets(1)) << "a share is never nothing";
    EXPECT_EQ(target.limits().at(CoppClass::igmp), packets(0));
}

TEST(CpuLimitOnChipTest, AllGenerationsLetThroughWhatIsAskedFor) {
    std::map<CoppClass, std::string> const limiters{{CoppClass::reservedMac, "reserved_mac_limit"},
                                                    {CoppClass::igmp, "igmp_limit"},
                                                    {CoppClass::linkLocal, "link_local_limit"},
                                                    {CoppClass::macLearn, "mac_learn_limit"},
                                                    {CoppClass::others, "default_limit"},
                                                    {CoppClass::ptp, "ptp_limit"},
                                                    {CoppClass::mirror, "mirror_limit"}};
    Random random(20272);
    for (U16 major = 2; major <= 10; ++major) {
        for (bool const noMux : {false, true}) {
            NerioSwitch::ProfileHwApi const hwApi(major, 2);
            SCOPED_TRACE(hwApi.text());
            auto const profile = profileOf(hwApi);
            profile->noMuxInRegName = noMux;
            LimiterSwitch target(profile);
            auto const classes = policedClasses(*profile);
            CpuLimits wanted;
            for (auto const policed : classes)
                wanted[policed] = packets(100 + below(random, 100000) * (below(random, 5) == 0 ? 0 : 1));
            target.limitsAre(wanted);
            target.start(StartMode::warm);
            EXPECT_EQ(target.limits(), wanted);
            EXPECT_THAT(target.copp().hwInconsistentEntries(), IsEmpty());
            for (auto const& [policed, limiter] : limiters) {
                if (!wanted.contains(policed)) continue;
                U64 const rate = wanted[policed]->perSecond();
                EXPECT_EQ(rateOf(target.cpuLimitOnChip(std::nullopt, limiter)), packets(rate)) << limiter;
                EXPECT_EQ(rateOf(target.cpuLimitOnChip(1, limiter)), packets(rate * 66 / 100)) << limiter;
            }
        }
    }
}

TEST(StormLimitOnChipTest, ASecondIsTheIntervalOfTheDefault) {
    EXPECT_EQ(StormControlEntry().interval(), second);
}

}  // namespace

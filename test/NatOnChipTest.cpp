// What the chip finds of translations, while and after their tables are filled to the limit.
#include <gtest/gtest.h>
#include <map>
#include <optional>

#include "NerioSwitchApi/TableFramework.h"
#include "Sorn/Text.h"

#include "NatFixture.h"
#include "RandomValue.h"
#include "chip/NatLookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ProfileInfo;
using NerioSwitchApi::StartMode;
using NerioTest::below;
using NerioTest::Random;

constexpr U8 pipeline = 1;

Lanvo::IpAddr randomAddress(Random& random) {
    return Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random()));
}

template <class Result>
Result randomSession(Random& random) {
    return Result()
        .validIs(true)
        .protoIs(below(random, 4))
        .natSessionIdIs(below(random, 0x20000))
        .trapToCpuIs(below(random, 2) != 0)
        .l3LagIndexIs(below(random, 64))
        .rewriteIndexIs(below(random, 64));
}

template <class Result>
bool saysSession(Chip::NatMatchHit const& hit, Result const& result) {
    return hit.protocols == result.proto().value() && hit.session == result.natSessionId().value() &&
           hit.trapToCpu == result.trapToCpu() && hit.l3Lag == result.l3LagIndex().value() &&
           hit.rewriteIndex == result.rewriteIndex().value();
}

/** Static matches on a chip of that version. */
template <U16 api>
struct Matches {
    using Table = NatMatchTable;
    static constexpr auto factory = natMatchTableFactory;
    static constexpr U16 hwApi = api;

    /** A filter ends with a one, so that it is told by its address alone where rows hold no length. */
    static NatMatchKey key(Random& random) {
        auto const type = static_cast<U8>(below(random, 4));
        auto const port = static_cast<U16>(type % 2 == 0 ? 0 : random());
        NatMatchKey key;
        key.natTypeIs(type).ingressProfileIdIs(static_cast<U16>(below(random, 64)));
        type < 2 ? key.sipIs(randomAddress(random)).sportIs(port)
                 : key.dipIs(randomAddress(random)).dportIs(port);
        if (below(random, 2) == 0) return key;
        auto const length = static_cast<U8>(1 + below(random, 32));
        U32 const last = 1u << (32 - length);
        U32 const filter = (static_cast<U32>(random()) & Lanvo::Prefix::mask(length)) | last;
        return key.filterPfxIs({Lanvo::IpAddr::fromHostOrder(filter), length});
    }
    static NatMatchResult result(Random& random) {
        return randomSession<NatMatchResult>(random).useAclIs(below(random, 2) != 0);
    }
    static NatMatchKey neighbour(NatMatchKey key) {
        U32 const flipped = (key.natType() < 2 ? key.sip() : key.dip()).hostOrder() ^ 1;
        return key.natType() < 2 ? key.sipIs(Lanvo::IpAddr::fromHostOrder(flipped))
                                 : key.dipIs(Lanvo::IpAddr::fromHostOrder(flipped));
    }

    Matches(Chip::SimulatedChip& chip, ProfileInfo const& profile, U32 ofPipeline = pipeline)
        : lookup(chip, profile, ofPipeline) {}
    std::optional<Chip::NatMatchHit> find(NatMatchKey const& key) const {
        bool const destination = key.natType() >= 2;
        Chip::NatSide side{.destination = destination,
                           .address = (destination ? key.dip() : key.sip()).hostOrder(),
                           .profile = key.ingressProfileId()};
        if (key.natType().value() % 2 != 0) side.port = destination ? key.dport() : key.sport();
        if (!key.filterPfx().isNull())
            side.filter = {key.filterPfx().address().hostOrder(), key.filterPfx().len()};
        return lookup.find(side);
    }
    static bool says(Chip::NatMatchHit const& hit, NatMatchKey const& key, NatMatchResult const& result) {
        return saysSession(hit, result) && hit.useAcl == result.useAcl() && !hit.dynamic &&
               hit.destination == (key.natType() >= 2);
    }

    Chip::NatMatchLookup lookup;
};

struct DynamicMatches {
    using Table = NatDynMatchTable;
    static constexpr auto factory = natDynMatchTableFactory;
    static constexpr U16 hwApi = 6;

    static NatMatchKey key(Random& random) {
        return NatMatchKey()
            .natTypeIs(6 + below(random, 3))
            .sipIs(randomAddress(random))
            .sportIs(static_cast<U16>(random()))
            .dipIs(randomAddress(random))
            .dportIs(static_cast<U16>(random()))
            .ingressProfileIdIs(static_cast<U16>(below(random, 64)));
    }
    static NatDynMatchResult result(Random& random) { return randomSession<NatDynMatchResult>(random); }
    static NatMatchKey neighbour(NatMatchKey key) {
        return key.sipIs(Lanvo::IpAddr::fromHostOrder(key.sip().hostOrder() ^ 0x200));
    }

    DynamicMatches(Chip::SimulatedChip& chip, ProfileInfo const& profile, U32 ofPipeline = pipeline)
        : lookup(chip, profile, ofPipeline) {}
    std::optional<Chip::NatMatchHit> find(NatMatchKey const& key) const {
        return lookup.find(Chip::NatFlow{.sourceAddress = key.sip().hostOrder(),
                                         .sourcePort = key.sport(),
                                         .destinationAddress = key.dip().hostOrder(),
                                         .destinationPort = key.dport(),
                                         .profile = key.ingressProfileId()});
    }
    static bool says(Chip::NatMatchHit const& hit, NatMatchKey const& key, NatDynMatchResult const& result) {
        return saysSession(hit, result) && hit.dynamic && hit.destination == (key.natType() == 8);
    }

    Chip::NatMatchLookup lookup;
};

struct Rewrites {
    using Table = NatRewriteTable;
    static constexpr auto factory = natRewriteTableFactory;
    static constexpr U16 hwApi = 6;

    static NatRewriteKey key(Random& random) {
        return NatRewriteKey()
            .isUnicastIs(true)
            .natSessionIdIs(below(random, 0x20000))
            .oddPortIs(below(random, 2) != 0)
            .natProfileIdIs(below(random, 64))
            .secondTnatIs(below(random, 2) != 0);
    }
    static NatRewriteResult result(Random& random) {
        return NatRewriteResult()
            .validIs(true)
            .newIpIs(randomAddress(random))
            .newPortIs(static_cast<U16>(random()))
            .checksumCorrectionIs(static_cast<U16>(random()));
    }
    static NatRewriteKey neighbour(NatRewriteKey key) {
        return key.natSessionIdIs(key.natSessionId().value() ^ 1);
    }

    Rewrites(Chip::SimulatedChip& chip, ProfileInfo const&, U32 ofPipeline = pipeline)
        : lookup(chip, ofPipeline) {}
    std::optional<Chip::NatRewriteHit> find(NatRewriteKey const& key) const {
        Chip::NatEgress egress{.session = key.natSessionId().value(),
                               .oddPort = key.oddPort(),
                               .profile = static_cast<U8>(key.natProfileId().value()),
                               .secondTnat = key.secondTnat()};
        if (!key.isUnicast()) {
            egress.copy = {static_cast<U8>(key.vlanGroupId().value()), key.vlanGroupMemberIdx().value()};
        }
        return lookup.find(egress);
    }
    static bool says(Chip::NatRewriteHit const& hit, NatRewriteKey const&, NatRewriteResult const& result) {
        return hit.newAddress == result.newIp().hostOrder() && hit.newPort == result.newPort() &&
               hit.checksumCorrection == result.checksumCorrection();
    }

    Chip::NatRewriteLookup lookup;
};

/** A table that is filled until a key finds no place, and the chip's own look-up in it. */
template <class Kind>
class NatOnChip : public NerioTest::NatFixture<typename Kind::Table> {
protected:
    using Key = typename Kind::Table::Key;
    using Result = typename Kind::Table::Result;

    NatOnChip() : NerioTest::NatFixture<typename Kind::Table>(Kind::factory) { this->apiIs(Kind::hwApi); }

    void startAndFill() {
        this->startTable(pipeline);
        lookup_.emplace(this->chip(), this->profile());
        while (put(Kind::key(random_)))
            continue;
    }
    /** False if the key found no place. */
    bool put(Key const& key) {
        auto const result = Kind::result(random_);
        underway_ = key;
        this->table().entryIs(key, result);
        underway_.reset();
        bool const placed = this->isProgrammed(key);
        if (placed) {
            inHardware_[key] = result;
        } else {
            inHardware_.erase(key);
        }
        return placed;
    }
    void remove(Key const& key) {
        underway_ = key;
        this->table().entryDel(key);
        underway_.reset();
        inHardware_.erase(key);
    }
    Key anyInHardware() {
        auto const found = inHardware_.lower_bound(Kind::key(random_));
        return found == inHardware_.end() ? inHardware_.begin()->first : found->first;
    }
    void step() {
        switch (below(random_, 4)) {
            case 0:
                return remove(anyInHardware());
            case 1:
                return static_cast<void>(put(anyInHardware()));
            default:
                put(Kind::key(random_));
        }
    }
    /** Every entry with a place is found with what it says; the one underway may be either way. */
    void everyEntryIsFound() const {
        for (auto const& [key, result] : inHardware_) {
            if (key == underway_) continue;
            auto const hit = lookup_->find(key);
            bool const found = hit && Kind::says(*hit, key, result);
            ASSERT_TRUE(found) << Sorn::text(key);
        }
    }
    void expectNothingAt(Key const& key) const {
        bool const found = !inHardware_.contains(key) && lookup_->find(key);
        ASSERT_FALSE(found) << Sorn::text(key);
    }

    Random random_{20266};
    std::optional<Kind> lookup_;
    std::map<Key, Result> inHardware_;
    std::optional<Key> underway_;
};

using Kinds = testing::Types<Matches<9>, Matches<10>, DynamicMatches, Rewrites>;
TYPED_TEST_SUITE(NatOnChip, Kinds);

TYPED_TEST(NatOnChip, NoEntryVanishesWhileAnotherIsPlacedAtTheLimit) {
    this->startAndFill();
    this->everyEntryIsFound();
    U32 writes = 0;
    this->afterEveryWriteIs([&] {
        ++writes;
        this->everyEntryIsFound();
    });
    constexpr U32 steps = 40;
    for (U32 i = 0; i < steps && !this->HasFatalFailure(); ++i)
        this->step();
    this->afterEveryWriteIs({});
    EXPECT_GT(writes, 3 * steps);
    auto const& histogram = this->table().hashConvertor()->moveHistogram();
    EXPECT_GT(histogram[3], 0u) << "no chain of three moves was seen";
}

TYPED_TEST(NatOnChip, NothingIsFoundThatWasNotPutThere) {
    this->startAndFill();
    for (U32 i = 0; i < 50000 && !this->HasFatalFailure(); ++i)
        this->expectNothingAt(TypeParam::key(this->random_));
    for (auto const& [key, result] : this->inHardware_) {
        this->expectNothingAt(TypeParam::neighbour(key));
        if (this->HasFatalFailure()) return;
    }
    auto const before = this->inHardware_;
    this->table().entryDelAll();
    this->inHardware_.clear();
    for (auto const& [key, result] : before)
        this->expectNothingAt(key);
}

TYPED_TEST(NatOnChip, TheFillIsThatOfItsWays) {
    this->startAndFill();
    auto const& rows = *this->table().hashConvertor();
    double const fill = static_cast<double>(rows.rowsInUse()) / (rows.tableSize() * rows.numHashTables());
    EXPECT_GT(fill, rows.numHashTables() == 3 ? 0.90 : 0.95);
}

TYPED_TEST(NatOnChip, WhatIsFoundIsTheSameAfterARestart) {
    this->startAndFill();
    this->restart();
    this->takeWrites();
    this->everyEntryIsFound();
    EXPECT_EQ(this->table().entries().size(), this->inHardware_.size());
}

TYPED_TEST(NatOnChip, ARowOfWrongParityIsPassedOver) {
    this->startTable(pipeline);
    this->lookup_.emplace(this->chip(), this->profile());
    auto const key = TypeParam::key(this->random_);
    ASSERT_TRUE(this->put(key));
    ASSERT_TRUE(this->lookup_->find(key));
    auto const& table = *this->convertor().hwTable(0);
    auto words = this->shadowWords(this->table().cachedItem(key)->hwIndex());
    words[1] ^= 0x80000000;
    auto const registers = table.registersOf(this->table().cachedItem(key)->hwIndex());
    for (std::size_t i = 0; i < registers.size(); ++i)
        this->chip().write(registers[i], words[i]);
    EXPECT_FALSE(this->lookup_->find(key));
}

/** The two kinds of match, behind the registers of one processor. */
struct SharedProcessor : testing::Test {
    SharedProcessor() { start(StartMode::cold); }

    void start(StartMode mode) {
        matches.reset();
        for (auto& table : dynamic)
            table.reset();
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, chip, shadows);
        matches = natMatchTableFactory("static", 0);
        dynamic[0] = natDynMatchTableFactory("even", 0);
        dynamic[1] = natDynMatchTableFactory("odd", 1);
        framework->tableIs(dynamic[1], mode);
        framework->tableIs(matches, mode);
        framework->tableIs(dynamic[0], mode);
    }
    template <class Table, class Model>
    void change(Random& random, Table& table, Model& model, auto const& key, auto const& result) {
        if (below(random, 3) == 0 && !model.empty()) {
            auto const first = model.begin()->first;
            table.entryDel(first);
            model.erase(first);
        }
        table.entryIs(key, result);
        model[key] = result;
    }

    Belmo::Ptr<ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Belmo::Ptr<NatMatchTable> matches;
    std::array<Belmo::Ptr<NatDynMatchTable>, 2> dynamic;
};

TEST_F(SharedProcessor, EachTableSeesItsOwnRowsOnly) {
    Random random(7);
    std::map<NatMatchKey, NatMatchResult> wanted;
    std::array<std::map<NatMatchKey, NatDynMatchResult>, 2> wantedDynamic;
    for (int round = 0; round < 4; ++round) {
        for (int i = 0; i < 300; ++i) {
            change(random, *matches, wanted, Matches<6>::key(random), Matches<6>::result(random));
            auto const odd = below(random, 2);
            change(random, *dynamic[odd], wantedDynamic[odd], DynamicMatches::key(random),
                   DynamicMatches::result(random));
        }
        start(StartMode::warm);
        ASSERT_EQ(matches->entries().size(), wanted.size());
        Matches<6> const lookup(*chip, *profile);
        for (auto const& [key, result] : wanted) {
            ASSERT_EQ(matches->entry(key), result);
            auto const hit = lookup.find(key);
            ASSERT_TRUE(hit && Matches<6>::says(*hit, key, result));
        }
        for (U32 odd = 0; odd < 2; ++odd) {
            ASSERT_EQ(dynamic[odd]->entries().size(), wantedDynamic[odd].size());
            DynamicMatches const own(*chip, *profile, odd);
            DynamicMatches const other(*chip, *profile, 1 - odd);
            for (auto const& [key, result] : wantedDynamic[odd]) {
                ASSERT_EQ(dynamic[odd]->entry(key), result);
                auto const hit = own.find(key);
                ASSERT_TRUE(hit && DynamicMatches::says(*hit, key, result));
                ASSERT_FALSE(other.find(key));
            }
        }
    }
}

TEST_F(SharedProcessor, HitsOfAllTablesAreToldApartInOnePoll) {
    Random random(8);
    double seconds = 0;
    for (int i = 0; i < 50; ++i) {
        auto const key = Matches<6>::key(random);
        auto const flow = DynamicMatches::key(random);
        matches->entryIs(key, Matches<6>::result(random));
        for (auto const& table : dynamic)
            table->entryIs(flow, DynamicMatches::result(random));
        Matches<6> staticLookup(*chip, *profile);
        DynamicMatches odd(*chip, *profile, 1);
        staticLookup.lookup.hitIs(*staticLookup.find(key));
        odd.lookup.hitIs(*odd.find(flow));
        EXPECT_EQ(framework->pollHitBits(Belmo::Duration(++seconds)), 2u);
        EXPECT_EQ(matches->tableStatus()->entryStatus(key).lastHit(), Belmo::Duration(seconds));
        EXPECT_EQ(dynamic[1]->tableStatus()->entryStatus(flow).lastHit(), Belmo::Duration(seconds));
        EXPECT_TRUE(dynamic[0]->tableStatus()->entryStatus(flow).lastHit().isNever());
    }
}

TEST(NatRewriteOnChip, RowsDoNotTellUnicastFromMulticastOfTheSameBits) {
    auto const profile = NerioSwitch::profilePreset("default");
    auto const chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework(profile, chip, NerioSwitchApi::memoryShadowStore());
    auto const table = natRewriteTableFactory("rewrites", pipeline);
    framework.tableIs(table, StartMode::cold);
    auto const multicast = NatRewriteKey().natSessionIdIs(9).vlanGroupIdIs(3).vlanGroupMemberIdxIs(2);
    Random random(1);
    auto const result = Rewrites::result(random);
    table->entryIs(multicast, result);
    Rewrites const lookup(*chip, *profile);
    auto const hit = lookup.find(multicast);
    ASSERT_TRUE(hit);
    EXPECT_TRUE(Rewrites::says(*hit, multicast, result));
    auto const unicast = NatRewriteKey().isUnicastIs(true).natSessionIdIs(9).natProfileIdIs(2u << 4 | 3);
    EXPECT_EQ(lookup.find(unicast), hit);
    EXPECT_FALSE(lookup.find(NatRewriteKey(multicast).vlanGroupMemberIdxIs(3)));
}

TEST(NatLookup, RefusesWhatItCannotLookUp) {
    auto const profile = NerioSwitch::profilePreset("default");
    auto const chip = Chip::simulatedChip(*profile);
    EXPECT_THROW(Chip::NatMatchLookup(*chip, *profile, 2), Belmo::RangeException);
    EXPECT_THROW(Chip::NatRewriteLookup(*chip, 2), Belmo::RangeException);
    Chip::NatMatchLookup const lookup(*chip, *profile, 0);
    EXPECT_FALSE(lookup.find(Chip::NatSide{.filter = Chip::NatSide::Filter{0, 32}}));
    EXPECT_THROW(lookup.find(Chip::NatSide{.filter = Chip::NatSide::Filter{0, 33}}), Belmo::RangeException);
}

}  // namespace

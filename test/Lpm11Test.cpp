// The direct stage of route look-up: its three row formats, its rows per VRF, its status and its hit bits.
#include <algorithm>
#include <bit>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableLpm11.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::LpmKey;
using NerioSwitch::NexthopIndexes;
using NerioSwitch::ProfileHwApi;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr char const* maskRangeText =
    "NerioSwitchTable::MaskLength::value < NerioSwitchTable::MaskLength::min or > "
    "NerioSwitchTable::MaskLength::null not allowed";

LpmKey key(U8 vrf, U32 address, U8 length = 11) {
    return {vrf, Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(address), length)};
}

/** Key of VRF 3 whose row is 3 * 2048 + 80. */
LpmKey const tens = key(3, 0x0A000000);
constexpr U32 tensRow = 6224;

Lpm11Result to(U32 nexthop, bool cpuTrap = false, U8 realPrefixLen = 8) {
    auto const cell = EntryCellResult().nexthopIndexesIs(nexthop).realPrefixLenIs(realPrefixLen);
    return Lpm11Result().cellResultIs(cell).cpuTrapIs(cpuTrap);
}

Lpm11Result withMasks(Lpm11Result const& result, MaskLength first, MaskLength second) {
    auto cell = result.cellResult();
    return Lpm11Result(result).cellResultIs(cell.maskLength0Is(first).maskLength1Is(second));
}

/** The row's control word: its number, the write strobe at 17, and table 7 at 18. */
U64 control(U32 row) {
    return row | 1u << 17 | 7u << 18;
}

class Lpm11Test : public NerioTest::TableFixture<Lpm11Table> {
protected:
    Lpm11Test() : TableFixture([] { return lpm11TableFactory("routes"); }) {}

    Lpm11Convertor& stage() { return static_cast<Lpm11Convertor&>(convertor()); }
    U32 chipWord(U32 row, U32 processor = 0) {
        auto const name = "ingress/processor_l3[" + std::to_string(processor) + "]/lpm11";
        return chip().indirectMemory(name).row(row)[0];
    }
    /** A packet hit the row. */
    void hit(U32 row, U32 processor = 0) {
        chip().hitIs("ingress/processor_l3[" + std::to_string(processor) + "]/hash_ctl",
                     static_cast<U32>(control(row)));
    }
    Belmo::Duration lastHit(LpmKey const& of) { return table().tableStatus()->entryStatus(of).lastHit(); }
    bool hasStatus(LpmKey const& of) { return table().tableStatus()->entryStatusHas(of); }
    void versionIs(U16 major, U16 minor) { profile().hwApi = ProfileHwApi(major, minor); }
    /** Expects that the table takes a result, or refuses its mask lengths and stays as it was. */
    void expectTaken(Lpm11Result const& result, bool taken) {
        auto const before = table().entry(tens);
        takeWrites();
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { table().entryIs(tens, result); }),
                  taken ? "" : Lpm11Row::maskRangeText);
        EXPECT_EQ(table().entry(tens), taken ? result : before);
        EXPECT_TRUE(taken || takeWriteCount() == 0);
    }
};

TEST_F(Lpm11Test, TheDefaultResultIsANullCellThatNoRouteOwns) {
    Lpm11Result const result;
    EXPECT_FALSE(result.cellResult().nexthopIndexes().valid());
    EXPECT_EQ(result.cellResult().realPrefixLen(), 0);
    EXPECT_FALSE(result.cpuTrap());
    EXPECT_TRUE(Lpm11EntryStatus().lastHit().isNever());
}

TEST_F(Lpm11Test, TextFormsSayCpuTrapOnlyWhereItIsSet) {
    auto const cell = to(100).cellResult().resultString();
    EXPECT_EQ(to(100).resultString(), cell);
    EXPECT_EQ(to(100, true).resultString(), "CpuTrap " + cell);
    auto const entry = Lpm11EntryIs(tens);
    entry->resultIs(to(100, true));
    EXPECT_EQ(entry->toStrep(), "Lpm11Entry( " + Sorn::text(tens) + " CpuTrap " + cell + " )");
    EXPECT_EQ(strepOf(nullptr), "NULL");
}

TEST_F(Lpm11Test, TableAndConvertorSayWhatTheyAre) {
    start();
    EXPECT_TRUE(table().statusSupported());
    EXPECT_TRUE(table().hitBitsSupported());
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(table().swTableId(), 42u);
    EXPECT_EQ(convertor().readStrobeBit(), 16);
    EXPECT_EQ(convertor().writeStrobeBit(), 17);
    EXPECT_EQ(stage().dataWords(), 3);
    convertor().hwStaticWordDel(1);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(1), 0xFFFFFFFF);
    EXPECT_EQ(convertor().descriptor(1)->name(), "routes/demo/Lpm11/1");
}

TEST_F(Lpm11Test, ARowGoesToOneDataRegisterOfEachProcessorAndTheLengthStaysInTheShadow) {
    start();
    takeWrites();
    table().entryIs(tens, to(100));
    U32 const word0 = 0x5D | 1u << 12;
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_l3[0]/hash_data0", word0),
                                          Pair("ingress/processor_l3[0]/hash_ctl", control(tensRow)),
                                          Pair("ingress/processor_l3[1]/hash_data0", word0),
                                          Pair("ingress/processor_l3[1]/hash_ctl", control(tensRow))));
    EXPECT_EQ(shadowWords(tensRow)[2], 8u);
    EXPECT_EQ(chipWord(tensRow, 1), word0);
}

struct Format {
    ProfileHwApi version;
    std::vector<NerioTest::PackedBits> expected;
    bool firstMaskReturns;
    bool secondMaskReturns;
};

class Lpm11FormatTest : public Lpm11Test, public testing::WithParamInterface<Format> {};

/** Next hop 100 is stored as 100 ^ 57 = 0x5D. The mask lengths are 9 and 5. */
TEST_P(Lpm11FormatTest, GoldenRowAndReadBack) {
    profile().hwApi = GetParam().version;
    start();
    auto const wanted = withMasks(to(100, true, 11), 9, 5);
    table().entryIs(tens, wanted);
    auto fields = GetParam().expected;
    fields.insert(fields.end(), {{0, 12, 0x5D}, {12, 1, 1}, {32, 32, control(tensRow)}, {64, 6, 11}});
    EXPECT_EQ(shadowWords(tensRow), packed(3, fields));
    EXPECT_EQ(shadowWords(tensRow, 1), packed(3, fields));
    EXPECT_EQ(chipWord(tensRow), packed(3, fields)[0]);
    auto const expected = withMasks(wanted, GetParam().firstMaskReturns ? MaskLength(9) : MaskLength(),
                                    GetParam().secondMaskReturns ? MaskLength(5) : MaskLength());
    auto const writes = takeWriteCount();
    EXPECT_GT(writes, 0u);
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(tens), expected);
    EXPECT_THAT(table().entries(), SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(
    Versions, Lpm11FormatTest,
    testing::Values(Format{{4, 9}, {{15, 1, 1}, {16, 1, 1}}, false, false},
                    Format{{5, 0}, {{15, 1, 1}, {16, 1, 1}}, false, false},
                    Format{{5, 1}, {{13, 1, 1}, {14, 1, 1}, {15, 4, 3}}, true, false},
                    Format{{8, 9}, {{13, 1, 1}, {14, 1, 1}, {15, 4, 3}}, true, false},
                    Format{{9, 0}, {{13, 1, 1}, {14, 1, 0}, {15, 4, 3}, {19, 4, 7}}, true, true},
                    Format{{10, 2}, {{13, 1, 1}, {14, 1, 0}, {15, 4, 3}, {19, 4, 7}}, true, true}),
    [](auto const& format) {
        auto const version = format.param.version;
        return std::to_string(version.majorVersion()) + "_" + std::to_string(version.minorVersion());
    });

TEST_F(Lpm11Test, ParityCoversWordZeroAndIsTakenWithItsOwnBitClear) {
    for (auto const& [major, parityBit] : {std::pair<U16, U32>{5, 16}, {6, 14}}) {
        versionIs(major, 0);
        make();
        for (U32 const nexthop : {56u, 58u, 100u}) {  // stored as 1, 3 and 0x5D
            start(StartMode::cold);
            table().entryIs(tens, to(nexthop));
            U32 const word = chipWord(tensRow);
            EXPECT_EQ(std::popcount(word) % 2, 0) << nexthop;
            EXPECT_EQ(word >> parityBit & 1, static_cast<U32>(std::popcount((nexthop ^ 57) | 1u << 12)) % 2)
                << nexthop;
        }
    }
}

TEST_F(Lpm11Test, AMaskLengthOf12AndNullAreTheSame) {
    versionIs(9, 0);
    start();
    table().entryIs(tens, withMasks(to(100), 12, 12));
    EXPECT_EQ(chipWord(tensRow) >> 15, 0u);
    restart();
    EXPECT_EQ(table().entry(tens), to(100));
}

TEST_F(Lpm11Test, MaskLengthsOf0And11ComeBack) {
    versionIs(9, 0);
    start();
    table().entryIs(tens, withMasks(to(100), 0, 11));
    EXPECT_EQ(chipWord(tensRow) >> 15 & 15, 12u);
    EXPECT_EQ(chipWord(tensRow) >> 19 & 15, 1u);
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(tens), withMasks(to(100), 0, 11)); });
}

TEST_F(Lpm11Test, LongerMaskLengthsWrapAround) {
    versionIs(9, 0);
    start();
    table().entryIs(tens, withMasks(to(100), 16, 32));
    EXPECT_EQ(chipWord(tensRow) >> 15 & 15, 12u);
    EXPECT_EQ(chipWord(tensRow) >> 19 & 15, 12u);
    table().entryIs(tens, withMasks(to(100), 17, 24));
    EXPECT_EQ(chipWord(tensRow) >> 15 & 15, 11u);
    EXPECT_EQ(chipWord(tensRow) >> 19 & 15, 4u);
}

TEST_F(Lpm11Test, MaskLengthsThatNoRowCouldGiveBackAreRefused) {
    for (auto const& [version, masks] : {std::pair{ProfileHwApi(5, 0), 0},
                                         {ProfileHwApi(5, 1), 1},
                                         {ProfileHwApi(8, 9), 1},
                                         {ProfileHwApi(9, 0), 2}}) {
        SCOPED_TRACE(version.text());
        profile().hwApi = version;
        start(StartMode::cold);
        for (U32 length = 0; length <= 33; ++length) {
            SCOPED_TRACE(length);
            bool const readable = length % 16 < 13;  // 33 is null
            expectTaken(withMasks(to(100), length, 33), readable || masks < 1);
            expectTaken(withMasks(to(100), 33, length), readable || masks < 2);
            EXPECT_NO_THROW(restart());
        }
    }
}

TEST_F(Lpm11Test, AMaskLengthToldBeforeTheStartIsRefusedByTheStart) {
    for (auto const& [version, refused] :
         {std::pair{ProfileHwApi(5, 0), false}, {ProfileHwApi(5, 1), true}}) {
        profile().hwApi = version;
        make();
        table().entryIs(tens, withMasks(to(100), 13, 33));
        takeWrites();
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { bringUp(StartMode::cold); }),
                  refused ? Lpm11Row::maskRangeText : "");
        EXPECT_EQ(takeWriteCount() == 0, refused);
    }
}

TEST_F(Lpm11Test, AMaskCodeOf13OrMoreIsARangeFailureOnReading) {
    versionIs(9, 0);
    start();
    for (U32 const position : {15u, 19u}) {
        shadow().store(5, packed(3, {{position, 4, 12}}));
        EXPECT_NO_THROW(stage().decodeHwEntry(5));
        for (U32 code = 13; code <= 15; ++code) {
            shadow().store(5, packed(3, {{position, 4, code}}));
            EXPECT_EQ(failureOf<Belmo::RangeException>([&] { stage().decodeHwEntry(5); }), maskRangeText);
        }
    }
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { restart(); }), maskRangeText);
}

TEST_F(Lpm11Test, OlderVersionsPassOverTheBitsOfMaskLengths) {
    versionIs(8, 9);
    start();
    shadow().store(5, packed(3, {{12, 1, 1}, {15, 4, 2}, {19, 4, 15}}));
    auto const entry = stage().decodeHwEntry(5);
    EXPECT_EQ(static_cast<Lpm11Entry&>(*entry).result().cellResult().maskLength0(), MaskLength(10));
    EXPECT_EQ(static_cast<Lpm11Entry&>(*entry).result().cellResult().maskLength1(), MaskLength());
}

TEST_F(Lpm11Test, TheControlWordKeepsItsForeignBitsAndTakesAllSixteenOfARow) {
    profile().numVrfs = 32;
    start();
    std::array<U32, 8> words;
    words.fill(0xFFFFFFFF);
    stage().setStaticBuffer(0xA5C3, reinterpret_cast<U8*>(words.data()));
    EXPECT_EQ(words[0], 0xFFFFFFFF);
    EXPECT_EQ(words[1], packed(1, {{0, 16, 0xA5C3}, {16, 1, 1}, {17, 1, 1}, {18, 4, 7}, {22, 10, 0x3FF}})[0]);
    EXPECT_EQ(words[2], 0xFFFFFFFF);
}

TEST_F(Lpm11Test, TheLengthHasSixBitsOnWritingAndSevenOnReading) {
    start();
    std::array<U32, 8> words{};
    words[2] = 0xC0;
    auto const entry = Lpm11EntryIs(tens);
    entry->resultIs(Lpm11Result().cellResultIs(EntryCellResult().realPrefixLenIs(0xFF)));
    stage().setHwBuffer(entry, reinterpret_cast<U8*>(words.data()));
    EXPECT_EQ(words[2], 0xFFu) << "bits 7:6 are left as they are";
    shadow().store(5, packed(3, {{64, 8, 0xFF}}));
    auto const decoded = stage().decodeHwEntry(5);
    EXPECT_EQ(static_cast<Lpm11Entry&>(*decoded).result().cellResult().realPrefixLen(), 0x7F);
}

TEST_F(Lpm11Test, RowsFollowTheNumberOfVrfs) {
    for (U32 const vrfs : {1u, 4u, 8u, 32u}) {
        SCOPED_TRACE(vrfs);
        auto const profileOfVrfs = NerioSwitch::profilePreset("default");
        profileOfVrfs->numVrfs = vrfs;
        auto const chipOfVrfs = Chip::simulatedChip(*profileOfVrfs);
        NerioSwitchApi::TableFramework framework(profileOfVrfs, chipOfVrfs,
                                                 NerioSwitchApi::memoryShadowStore());
        auto const routes = lpm11TableFactory("routes");
        framework.tableIs(routes, StartMode::cold);
        auto& convertor = static_cast<Lpm11Convertor&>(*routes->profileConvertorPtr());
        U32 const last = vrfs * 2048 - 1;
        EXPECT_EQ(convertor.descriptor(1)->lastIndex(), last);
        EXPECT_EQ(convertor.hitDescriptor(1)->lastIndex(), last);
        for (U32 const row : {0u, last})
            EXPECT_EQ(convertor.hwIndexFromKey(convertor.keyFromHwIndex(row)), row);
        auto const lastKey = key(static_cast<U8>(vrfs - 1), 0xFFE00000);
        EXPECT_EQ(convertor.keyFromHwIndex(last), lastKey);
        routes->entryIs(lastKey, to(100));
        EXPECT_NE(chipOfVrfs->indirectMemory("ingress/processor_l3[1]/lpm11").row(last)[0], 0u);
        if (vrfs < 32) {
            EXPECT_THROW(routes->entryIs(key(static_cast<U8>(vrfs), 0), to(100)), Belmo::RangeException);
        }
        auto const hitWord = static_cast<U32>(control(last));
        chipOfVrfs->hitIs("ingress/processor_l3[1]/hash_ctl", hitWord);
        EXPECT_EQ(framework.pollHitBits(Belmo::Duration(3)), 1u);
        EXPECT_EQ(routes->tableStatus()->entryStatus(lastKey).lastHit(), Belmo::Duration(3));
    }
}

TEST_F(Lpm11Test, EntriesSurviveARestartWithoutAWrite) {
    start();
    std::map<LpmKey, Lpm11Result> wanted;
    for (U32 i = 0; i < 40; ++i)
        wanted[key(static_cast<U8>(i % 4), i << 26)] = to(i * 100, i % 3 == 0, static_cast<U8>(i % 12));
    wanted[key(0, 0)] = Lpm11Result();  // a null cell in the row of the zero key
    wanted[key(3, 0xFFE00000)] = to(EntryCellResult::maxNexthop);
    for (auto const& [each, result] : wanted)
        table().entryIs(each, result);
    holdsAcrossRestart([&] {
        EXPECT_EQ(table().entries().size(), wanted.size());
        for (auto const& [each, result] : wanted) {
            EXPECT_TRUE(table().entryHas(each));
            EXPECT_EQ(table().entry(each), result);
            EXPECT_TRUE(hasStatus(each));
            EXPECT_TRUE(lastHit(each).isNever());
        }
        EXPECT_THAT(table().tableStatus()->entryStatuses(), SizeIs(wanted.size()));
        EXPECT_TRUE(table().hwInconsistentEntries().empty());
    });
}

TEST_F(Lpm11Test, AnEmptyRowHoldsTheNullCell) {
    start();
    EXPECT_EQ(shadowWords(tensRow), packed(3, {{32, 32, control(tensRow)}}));
    auto const empty = stage().nullDirectEntry(tensRow);
    EXPECT_FALSE(empty->valid());
    EXPECT_EQ(static_cast<Lpm11Entry&>(*empty).key(), tens);
    EXPECT_EQ(static_cast<Lpm11Entry&>(*empty).result(), Lpm11Result());
    table().entryIs(tens, to(100, true));
    EXPECT_EQ(table().entryDel(tens), to(100, true));
    EXPECT_EQ(shadowWords(tensRow, 1), packed(3, {{32, 32, control(tensRow)}}));
    EXPECT_EQ(chipWord(tensRow, 1), 0u);
}

TEST_F(Lpm11Test, ANextHopThatNoRowCanCarryIsRefusedBeforeAnythingIsStored) {
    for (bool const isUp : {false, true}) {
        make();
        if (isUp) bringUp(StartMode::cold);
        takeWrites();
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { table().entryIs(tens, to(0x1000)); }),
                  EntryCellResult::nexthopRangeText);
        EXPECT_FALSE(table().entryHas(tens));
        EXPECT_EQ(takeWriteCount(), 0u);
        EXPECT_NO_THROW(table().entryIs(tens, to(0xFFF)));
    }
}

TEST_F(Lpm11Test, AnInvalidRowIsNotComparedAndIsClearedWhereCopiesDisagree) {
    start();
    table().entryIs(tens, to(100));
    shadow(0).store(tensRow, packed(3, {{32, 32, control(tensRow)}}));
    takeWrites();
    restart();
    EXPECT_FALSE(table().entryHas(tens));
    EXPECT_FALSE(table().hwInconsistentEntry(tens));
    EXPECT_EQ(takeWriteCount(), 2u);
    EXPECT_EQ(chipWord(tensRow, 1), 0u);
}

TEST_F(Lpm11Test, AValidRowThatDiffersInAnyOfThreeWordsMarksItsKey) {
    for (U32 word = 0; word < 3; ++word) {
        SCOPED_TRACE(word);
        start(StartMode::cold);
        table().entryIs(tens, to(100));
        auto words = shadowWords(tensRow, 1);
        words[word] ^= 1;
        shadow(1).store(tensRow, words);
        restart();
        EXPECT_TRUE(table().hwInconsistentEntry(tens));
        EXPECT_EQ(table().entry(tens), to(100)) << "the first copy is taken";
    }
}

TEST_F(Lpm11Test, OnlyValidRowsAreTracedAsDecoded) {
    start();
    table().entryIs(tens, to(100));
    NerioTest::TraceCapture const trace("NerioTableLpm11", 7);
    stage().decodeHwEntry(tensRow);
    stage().decodeHwEntry(tensRow + 1);
    EXPECT_THAT(trace.lines(), ElementsAre("Decoded entry is Lpm11Entry( " + Sorn::text(tens) + " " +
                                           to(100).resultString() + " )"));
}

TEST_F(Lpm11Test, StatusFollowsEntries) {
    start();
    std::vector<std::string> changes;
    auto const subscription = table().publisher().observeAll(
        [&](Belmo::Change const& change) { changes.emplace_back(change.attribute); });
    table().entryIs(tens, to(100));
    EXPECT_TRUE(lastHit(tens).isNever());
    EXPECT_EQ(table().tableStatus()->entryStatus(tens).key(), tens);
    table().lastHitIs(tens, Belmo::Duration(7));
    table().entryIs(tens, to(101));
    EXPECT_EQ(lastHit(tens), Belmo::Duration(7)) << "a new result keeps the time";
    table().entryDel(tens);
    EXPECT_FALSE(hasStatus(tens));
    EXPECT_TRUE(lastHit(tens).isNever()) << "the default record of an absent key";
    EXPECT_THAT(changes, ElementsAre("entryStatus", "entry", "entryStatus", "entry", "entryStatus", "entry"));
}

TEST_F(Lpm11Test, EntriesOfBeforeTheStartHaveAStatusAfterIt) {
    make();
    table().entryIs(tens, to(100));
    EXPECT_EQ(table().tableStatus(), nullptr);
    bringUp(StartMode::cold);
    EXPECT_TRUE(hasStatus(tens));
}

TEST_F(Lpm11Test, TheStatusObjectIsMadeOnceAndOutlivesItsTable) {
    start();
    table().entryIs(tens, to(100));
    auto const status = table().tableStatus();
    table().tableStatusIs();
    EXPECT_EQ(table().tableStatus(), status);
    restart();
    status->entryStatusIs(Lpm11EntryStatus().keyIs(key(1, 0)));
    EXPECT_THAT(status->entryStatuses(), SizeIs(2));
    status->entryStatusDelAll();
    EXPECT_THAT(status->entryStatuses(), IsEmpty());
    EXPECT_TRUE(hasStatus(tens)) << "the table that came after has an object of its own";
    int changes = 0;
    auto const subscription = table().publisher().observeAll([&](auto const&) { ++changes; });
    table().tableStatusDel();
    EXPECT_EQ(table().tableStatus(), nullptr);
    table().tableStatusDel();
    EXPECT_EQ(changes, 2) << "the record, and the object";
}

TEST_F(Lpm11Test, AnEqualStatusPublishesNothing) {
    start();
    int changes = 0;
    auto const subscription = table().publisher().observe("entryStatus", [&](auto const&) { ++changes; });
    auto const record = Lpm11EntryStatus().keyIs(tens).lastHitIs(Belmo::Duration(1));
    table().tableStatus()->entryStatusIs(record);
    table().tableStatus()->entryStatusIs(record);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(table().tableStatus()->entryStatusDel(tens), record);
    EXPECT_EQ(table().tableStatus()->entryStatusDel(tens), Lpm11EntryStatus());
    EXPECT_EQ(changes, 2);
}

TEST_F(Lpm11Test, AnItemFromHardwareBringsItsTimeIntoTheStatus) {
    start();
    auto const entry = Lpm11EntryIs(tens);
    entry->validIs(true);
    entry->lastHitIs(Belmo::Duration(4));
    table().entryIsByDirectItem(entry);
    EXPECT_EQ(lastHit(tens), Belmo::Duration(4));
    EXPECT_TRUE(table().entryHas(tens));
}

TEST_F(Lpm11Test, AHitReachesTheStatusAndTheLaterTimeStays) {
    start();
    table().entryIs(tens, to(100));
    hit(tensRow);
    EXPECT_EQ(poll(5), 1u);
    EXPECT_EQ(lastHit(tens), Belmo::Duration(5));
    hit(tensRow, 1);
    EXPECT_EQ(poll(3), 1u);
    EXPECT_EQ(lastHit(tens), Belmo::Duration(5)) << "an older time leaves the newer one in place";
    hit(tensRow);
    EXPECT_EQ(poll(8), 1u);
    EXPECT_EQ(lastHit(tens), Belmo::Duration(8));
    EXPECT_EQ(poll(9), 0u);
    EXPECT_EQ(lastHit(tens), Belmo::Duration(8));
}

TEST_F(Lpm11Test, EveryRowHasAHitBitOfItsOwn) {
    profile().numVrfs = 32;
    start();
    constexpr U8 bits[] = {7, 16, 20, 21, 22, 23, 24, 25};
    auto const& registrations = convertor().hitBitTable(0)->reads().front().bits;
    EXPECT_THAT(registrations, SizeIs(16));
    for (auto const& [bit, registration] : registrations) {
        bool const isOdd = bit >= 36;
        auto const* const position = std::find(std::begin(bits), std::end(bits), bit - (isOdd ? 36 : 0));
        ASSERT_NE(position, std::end(bits));
        EXPECT_EQ(registration.firstIndex(), (position - std::begin(bits)) * 0x2000 + (isOdd ? 1 : 0));
        EXPECT_EQ(registration.firstRead(), 0u);
        EXPECT_EQ(registration.lastRead(), 0xFFFu);
        EXPECT_EQ(registration.stride(), 2u);
    }
    auto const& read = convertor().hitBitTable(1)->reads().front();
    EXPECT_EQ(read.value, 0x2D0000u);
    EXPECT_THAT(read.data, SizeIs(3));
    for (U32 const row : {0u, 1u, 0x1FFEu, 0x1FFFu, 0x2000u, 0x5001u, 0xFFFEu, 0xFFFFu}) {
        auto const of = stage().keyFromHwIndex(row);
        table().entryIs(of, to(100));
        hit(row);
        EXPECT_EQ(poll(row + 1), 1u) << row;
        EXPECT_EQ(lastHit(of), Belmo::Duration(row + 1)) << row;
    }
}

TEST_F(Lpm11Test, AHitOnARowWithoutAnEntryChangesNothing) {
    start();
    NerioTest::TraceCapture const trace("NerioTableLpm11", 8);
    hit(tensRow);
    EXPECT_EQ(poll(5), 1u);
    EXPECT_THAT(table().tableStatus()->entryStatuses(), IsEmpty());
    EXPECT_THAT(trace.lines(),
                ElementsAre("Read Hit bit 6224 tableId: 0",
                            "SW table has no entry for key " + Sorn::text(tens) + ". Ignoring."));
}

TEST_F(Lpm11Test, AHitIsTracedAndARowThatWasNotHitIsNot) {
    start();
    table().entryIs(tens, to(100));
    NerioTest::TraceCapture const trace("NerioTableLpm11", 8);
    convertor().handleHitBitEntry(1, tensRow);  // no hit was read
    hit(tensRow, 1);
    poll(5);
    EXPECT_THAT(trace.lines(), ElementsAre("Read Hit bit 6224 tableId: 1", "Read Hit bit 6224 tableId: 1",
                                           "key: " + Sorn::text(tens) + " new hit time: 5"));
}

TEST_F(Lpm11Test, AHitOfAnEntryWithoutAStatusMakesOne) {
    start();
    table().entryIs(tens, to(100));
    table().tableStatus()->entryStatusDelAll();
    hit(tensRow);
    poll(5);
    EXPECT_EQ(lastHit(tens), Belmo::Duration(5));
    EXPECT_EQ(table().tableStatus()->entryStatus(tens).key(), tens);
}

using Lpm11DeathTest = Lpm11Test;

TEST_F(Lpm11DeathTest, AKeyOfAnotherLengthIsAnAssertion) {
    start();
    EXPECT_DEATH(table().entryIs(key(0, 0x0A000000, 8), to(100)),
                 "Assertion failed: key.prefix\\(\\).len\\(\\) == 11 ");
    EXPECT_DEATH(table().entryIs(key(0, 0x0A000000, 12), to(100)), "key.prefix\\(\\).len\\(\\) == 11 ");
    make();
    EXPECT_DEATH(table().entryIs(key(0, 0x0A000000, 8), to(100)), "key.prefix\\(\\).len\\(\\) == 11 ");
}

TEST_F(Lpm11DeathTest, ARouteOfMoreThanElevenBitsDoesNotBelongHere) {
    start();
    EXPECT_DEATH(table().entryIs(tens, to(100, false, 12)),
                 "Assertion failed: cellResult.realPrefixLen\\(\\) <= 11 ");
    table().entryIs(tens, to(NexthopIndexes::null, false, 63));
    EXPECT_EQ(shadowWords(tensRow)[2], 63u) << "a null next hop may carry any length";
    table().entryIs(tens, to(100, false, 11));
    shadow().store(tensRow, packed(3, {{0, 12, 0x5D}, {12, 1, 1}, {64, 7, 12}}));
    EXPECT_DEATH(stage().decodeHwEntry(tensRow), "Assertion failed: realPrefixLen <= 11 ");
    shadow().store(tensRow, packed(3, {{0, 12, 0x5D}, {12, 1, 0}, {64, 7, 12}}));
    EXPECT_FALSE(stage().decodeHwEntry(tensRow)->valid());
}

TEST_F(Lpm11DeathTest, AProfileWithoutRowsOrWithMoreThanAControlWordCanNameIsAProgrammingError) {
    profile().numVrfs = 0;
    EXPECT_DEATH(start(), "Assertion failed: tableSize != 0 ");
    profile().numVrfs = 33;
    EXPECT_DEATH(start(), "Assertion failed: profile\\(\\)->numVrfs <= maxVrfs ");
}

TEST_F(Lpm11DeathTest, AHitOfATableThatIsNotThereIsAnAssertion) {
    start();
    EXPECT_DEATH(convertor().handleHitBitEntry(2, 0), "Assertion failed: hitTable ");
}

}  // namespace

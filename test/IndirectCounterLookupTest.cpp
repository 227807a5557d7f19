#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "NerioSwitch/CrcHash.h"

#include "chip/AclLookup.h"

namespace {

using Chip::HashPlace;

struct IndirectCounterLookup : testing::Test {
    HashPlace write(U16 key, U32 word, U8 way = 0) {
        U8 const bytes[] = {static_cast<U8>(key), static_cast<U8>(key >> 8)};
        HashPlace const place{way, NerioSwitch::crc11Hash(bytes, way, 16)};
        std::string const prefix = "ingress/processor_acl[1]/hash_";
        chip->write(chip->address(prefix + "data0"), word);
        chip->write(chip->address(prefix + "ctl"), place.row | U32{way} << 11 | 1u << 15 | 1u << 18);
        return place;
    }
    /** A row from its literal positions, with even parity. */
    static U32 word(U32 upperKey, U32 counter) {
        U32 const bits = upperKey | counter << 5;
        return bits | static_cast<U32>(__builtin_popcount(bits) & 1) << 17;
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    Chip::IndirectCounterLookup lookUp{*chip, 1};
};

TEST_F(IndirectCounterLookup, FindsAKeysCounterInEitherWay) {
    EXPECT_EQ(lookUp.find(0x8001), std::nullopt);
    for (U8 const way : {U8{1}, U8{0}}) {
        auto const place = write(0x8001, word(16, 0xABC), way);
        EXPECT_EQ(lookUp.find(0x8001), (Chip::IndirectCounterHit{place, 0xABC}));
    }
    EXPECT_EQ(lookUp.find(0x8000), std::nullopt);
    EXPECT_EQ(lookUp.find(0x0001), std::nullopt);
    EXPECT_EQ(Chip::IndirectCounterLookup(*chip, 0).find(0x8001), std::nullopt) << "of another processor";
}

TEST_F(IndirectCounterLookup, NoOtherKeyIsFoundInARow) {
    write(0x8001, word(16, 1));
    for (U32 key = 0; key < 0x10000; ++key)
        EXPECT_EQ(lookUp.find(static_cast<U16>(key)).has_value(), key == 0x8001) << key;
}

TEST_F(IndirectCounterLookup, ARowOfWrongParityIsPassedOverAndReported) {
    Chip::WrongParity wrong{};
    for (U32 bit = 0; bit < 32; ++bit) {
        write(0x8001, word(16, 0xABC) ^ 1u << bit, 1);
        EXPECT_EQ(lookUp.find(0x8001, &wrong), std::nullopt);
        EXPECT_EQ(wrong, (Chip::WrongParity{false, true})) << bit;
    }
}

TEST_F(IndirectCounterLookup, AKeyBelow2048WithCounterZeroIsAnEmptyRow) {
    for (U32 key = 0; key < 0x10000; ++key)
        EXPECT_EQ(lookUp.find(static_cast<U16>(key)), std::nullopt);
    write(0, word(0, 7));
    EXPECT_EQ(lookUp.find(0)->counter, 7) << "the key 0 is as good as any other";
    write(5, word(0, 0));
    EXPECT_EQ(lookUp.find(5), std::nullopt);
    write(2048, word(1, 0));
    EXPECT_EQ(lookUp.find(2048)->counter, 0);
}

TEST_F(IndirectCounterLookup, RefusesAProcessorThatIsNotThere) {
    EXPECT_THROW(Chip::IndirectCounterLookup(*chip, 2), Belmo::RangeException);
}

}  // namespace

#include <array>
#include <gtest/gtest.h>
#include <string>

#include "NerioSwitch/CrcHash.h"

#include "PackedWords.h"
#include "chip/AclLookup.h"

namespace {

using Chip::AclFields;
using Chip::AclRule;
using Chip::HashPlace;
using NerioTest::PackedBits;
using Fields = std::vector<PackedBits>;

constexpr auto acl = NerioSwitch::TableLayoutEnum::tableLayoutAcl;

bool bitOf(std::vector<U32> const& words, U32 bit) {
    return (words.at(bit / 32) >> bit % 32 & 1) != 0;
}

std::vector<U32> pack(Fields const& fields) {
    std::vector<U32> words(4, 0);
    for (auto const& field : fields) {
        auto const more = NerioTest::packed(4, {field});
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] |= more[i];
    }
    return words;
}

/** One kind of row: where it is, and where in it the result and the parity bit stand. */
struct RowKind {
    U16 version;
    bool shared;
    U8 table;
    U8 combination;
    U32 keyBits;
    U32 result;
    U32 parity;

    U32 implied() const { return shared ? 11 : 12; }
    U32 parityWords() const { return table == 2 ? 4 : 3; }
    std::string text() const {
        return "version" + std::to_string(version) + (shared ? "Shared" : "Single") + "Table" +
               std::to_string(table);
    }
};

/** A chip, and rows that are written into it from literal positions. */
class AclRows {
public:
    void chipIs(U16 version, bool shared) {
        profile = NerioSwitch::profilePreset("default");
        profile->hwApi = {version, 0};
        if (shared) profile->layouts[acl] = {1, 2, 1, 2048, {0, 0}, {0, 0}};
        make();
    }
    void make() {
        chip = Chip::simulatedChip(*profile);
        lookUp.emplace(*chip, *profile);
    }

    static U32 rowOf(RowKind const& kind, std::vector<U32> const& key, U8 way) {
        std::array<U8, 16> bytes{};
        for (U32 i = 0; i < 16; ++i)
            bytes[i] = static_cast<U8>(key[i / 4] >> (i % 4 * 8));
        auto const bits = static_cast<U8>(kind.keyBits);
        return kind.shared ? NerioSwitch::crc11Hash(bytes.data(), way, bits)
                           : NerioSwitch::crc12Hash(bytes.data(), way, bits);
    }
    /** The row of a key: without its implied bits, with a result behind them, with even parity. */
    static std::vector<U32> row(RowKind const& kind, std::vector<U32> const& key, Fields const& result) {
        Fields fields;
        for (U32 bit = kind.implied(); bit < kind.keyBits; ++bit)
            fields.push_back({bit - kind.implied(), 1, bitOf(key, bit)});
        for (auto const& field : result)
            fields.push_back({kind.result + field.bit, field.width, field.value});
        auto words = pack(fields);
        makeEven(kind, words);
        return words;
    }
    static void makeEven(RowKind const& kind, std::vector<U32>& words) {
        U32 ones = 0;
        for (U32 i = 0; i < kind.parityWords(); ++i)
            ones += static_cast<U32>(__builtin_popcount(words[i]));
        if (ones % 2 != 0) words[kind.parity / 32] ^= 1u << kind.parity % 32;
    }
    void write(RowKind const& kind, U32 pipeline, HashPlace place, std::vector<U32> const& words) {
        auto const prefix = "ingress/processor_acl[" + std::to_string(kind.shared ? 0 : pipeline) + "]/hash_";
        for (U32 i = 0; i < 4; ++i)
            chip->write(chip->address(prefix + "data" + std::to_string(i)), words[i]);
        U32 const place32 = kind.shared ? place.row | U32{place.way} << 11 | (pipeline & 1) << 16
                                        : place.row | U32{place.way} << 12;
        chip->write(chip->address(prefix + "ctl"), place32 | U32{kind.table} << 13 | 1u << 18);
    }
    HashPlace write(RowKind const& kind, std::vector<U32> const& key, Fields const& result, U8 way = 0,
                    U32 pipeline = 0) {
        HashPlace const place{way, rowOf(kind, key, way)};
        write(kind, pipeline, place, row(kind, key, result));
        return place;
    }
    std::optional<Chip::AclHit> find(RowKind const& kind, AclFields const& fields, U32 pipeline = 0) {
        return lookUp->find(fields, kind.combination, pipeline);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile;
    Belmo::Ptr<Chip::SimulatedChip> chip;
    std::optional<Chip::AclLookup> lookUp;
};

/** A packet that every table looks at in full. */
constexpr AclFields packet{.aclId = 9,
                           .firstAddress = 0x0A010203,
                           .firstLength = 24,
                           .secondAddress = 0xC0A81155,
                           .secondLength = 29,
                           .port = 443,
                           .protocol = 6,
                           .vrf = 5,
                           .keyFlag = true};

/** The keys that the packet has under the combinations 4, 8, 12 and 16. */
std::vector<U32> packetKey(U8 table, bool masks) {
    U32 const first = masks ? 0x0A010200 | 24 : 0x0A010200;
    U32 const second = masks ? 0xC0A81150 | 2 : 0xC0A81150;
    Fields key;
    switch (table) {
        case 0:
            key = {{0, 4, 9}, {4, 3, 4}, {7, 32, second}, {39, 4, 6}, {43, 16, 443}};
            break;
        case 1:
            key = {{0, 4, 9}, {4, 2, 1}, {6, 32, first}, {38, 4, 6}, {42, 16, 443}};
            break;
        case 2:
            key = {{0, 4, 9}, {4, 2, 1}, {6, 32, second}, {38, 32, first}, {70, 4, 6}, {74, 16, 443}};
            break;
        default:
            key = {{0, 1, 1}, {1, 3, 5}, {4, 2, 1}, {6, 32, first}, {38, 32, second}};
            break;
    }
    if (masks && table == 0) key.push_back({59, 2, 2});
    if (masks && table == 1) key.push_back({58, 2, 3});
    if (masks && table == 2) key.insert(key.end(), {{90, 2, 2}, {92, 2, 3}});
    if (masks && table == 5) key.insert(key.end(), {{70, 2, 2}, {72, 2, 3}});
    return pack(key);
}

std::vector<U32> packetKey(RowKind const& kind) {
    return packetKey(kind.table, kind.version > 2);
}

/** A result of each row format. */
Fields packetResult(RowKind const& kind) {
    if (kind.table == 5) {
        if (kind.version == 2) return {{0, 6, 64 - 7}, {6, 1, 1}};
        return {{0, 6, 64 - 7}};
    }
    if (kind.version < 4) return {{0, 6, 64 - 7}, {6, 1, 1}, {7, 4, 16 - 9}, {11, 1, 1}, {12, 11, 0x5A5}};
    return {{0, 6, 64 - 7}, {6, 1, 1}, {7, 12, 0xA5A}};
}

class EveryAclRow : public testing::TestWithParam<RowKind>, protected AclRows {
protected:
    EveryAclRow() { chipIs(GetParam().version, GetParam().shared); }
};

TEST_P(EveryAclRow, IsFoundInEitherWayWithItsRules) {
    auto const kind = GetParam();
    for (U8 const way : {U8{0}, U8{1}}) {
        make();
        EXPECT_EQ(find(kind, packet), std::nullopt);
        auto const place = write(kind, packetKey(kind), packetResult(kind), way);
        auto const hit = find(kind, packet);
        ASSERT_TRUE(hit.has_value());
        EXPECT_EQ(hit->place, place);
        bool const chains = kind.table != 5 && kind.version < 4;
        U16 const counter = kind.table == 5 ? 0 : chains ? 0x5A5 : 0xA5A;
        EXPECT_EQ(hit->rule, (AclRule{7, true, counter, std::nullopt}));
        EXPECT_EQ(hit->secondRule, chains ? std::optional(AclRule{9, true, 0, std::nullopt}) : std::nullopt);
    }
}

TEST_P(EveryAclRow, IsNotFoundIfAnyStoredKeyBitDiffers) {
    auto const kind = GetParam();
    auto const place = write(kind, packetKey(kind), packetResult(kind));
    auto const whole = row(kind, packetKey(kind), packetResult(kind));
    for (U32 bit = 0; bit < kind.result; ++bit) {
        auto words = whole;
        words[bit / 32] ^= 1u << bit % 32;
        makeEven(kind, words);
        write(kind, 0, place, words);
        EXPECT_EQ(find(kind, packet), std::nullopt) << "bit " << bit;
    }
    write(kind, 0, place, whole);
    EXPECT_TRUE(find(kind, packet).has_value());
}

TEST_P(EveryAclRow, WithWrongParityIsPassedOverAndReported) {
    auto const kind = GetParam();
    auto const place = write(kind, packetKey(kind), packetResult(kind), 1);
    auto const whole = row(kind, packetKey(kind), packetResult(kind));
    for (U32 bit = 0; bit < kind.parityWords() * 32; ++bit) {
        auto words = whole;
        words[bit / 32] ^= 1u << bit % 32;
        write(kind, 0, place, words);
        Chip::WrongParity wrong{};
        EXPECT_EQ(lookUp->find(packet, kind.combination, 0, &wrong), std::nullopt);
        EXPECT_EQ(wrong, (Chip::WrongParity{false, true})) << "bit " << bit;
    }
    write(kind, 0, place, whole);
    Chip::WrongParity wrong{true, true};
    EXPECT_TRUE(lookUp->find(packet, kind.combination, 0, &wrong).has_value());
    EXPECT_EQ(wrong, (Chip::WrongParity{false, false}));
    write(kind, packetKey(kind), packetResult(kind), 0);
    write(kind, 0, place, {1, 0, 0, 0});
    EXPECT_EQ(lookUp->find(packet, kind.combination, 0, &wrong)->place.way, 0);
    EXPECT_EQ(wrong, (Chip::WrongParity{false, true})) << "both ways are read, whichever hits";
}

TEST_P(EveryAclRow, OfAnotherKeyThatSharesItIsNotTakenForIt) {
    auto const kind = GetParam();
    auto const place = write(kind, packetKey(kind), packetResult(kind));
    // The bits of the first or second address that the row stores.
    U32 const address = kind.table == 0 ? 7 : kind.table == 1 ? 6 : 38;
    U32 sharing = 0;
    for (U32 number = 1; number < 1u << 16; ++number) {
        auto other = packetKey(kind);
        U64 const flips = U64{number} << (address + 8) % 32;
        other[(address + 8) / 32] ^= static_cast<U32>(flips);
        other[(address + 8) / 32 + 1] ^= static_cast<U32>(flips >> 32);
        if (rowOf(kind, other, 0) != place.row) continue;
        ++sharing;
        auto fields = packet;
        (address == 7 || kind.table == 5 ? fields.secondAddress : fields.firstAddress) ^= number << 8;
        EXPECT_EQ(find(kind, fields), std::nullopt);
        auto const theirs = write(kind, other, {}, 1);
        EXPECT_EQ(find(kind, fields)->place, theirs);
        EXPECT_EQ(find(kind, packet)->place, place);
    }
    EXPECT_GT(sharing, 10u);
}

TEST_P(EveryAclRow, BelongsToOnePipelineAndOneTable) {
    auto const kind = GetParam();
    auto const place = write(kind, packetKey(kind), packetResult(kind), 0, 1);
    EXPECT_EQ(find(kind, packet), std::nullopt);
    EXPECT_EQ(find(kind, packet, 1)->place, place);
    for (U8 combination = 0; combination < 18; ++combination) {
        EXPECT_EQ(lookUp->find(packet, combination, 1).has_value(), combination == kind.combination)
            << int{combination};
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, EveryAclRow,
                         testing::Values(
                             // version, shared, table, combination, key bits, result at, parity bit at
                             RowKind{2, true, 0, 4, 59, 48, 72}, RowKind{2, false, 0, 4, 59, 47, 71},
                             RowKind{3, true, 0, 4, 61, 50, 74}, RowKind{3, false, 0, 4, 61, 49, 73},
                             RowKind{4, true, 0, 4, 61, 50, 91}, RowKind{4, false, 0, 4, 61, 49, 90},
                             RowKind{2, true, 1, 8, 58, 47, 71}, RowKind{2, false, 1, 8, 58, 46, 70},
                             RowKind{3, true, 1, 8, 60, 49, 73}, RowKind{3, false, 1, 8, 60, 48, 72},
                             RowKind{4, true, 1, 8, 60, 49, 90}, RowKind{4, false, 1, 8, 60, 48, 89},
                             RowKind{2, true, 2, 12, 90, 79, 103}, RowKind{2, false, 2, 12, 90, 78, 102},
                             RowKind{3, true, 2, 12, 94, 83, 107}, RowKind{3, false, 2, 12, 94, 82, 106},
                             RowKind{4, true, 2, 12, 94, 83, 124}, RowKind{4, false, 2, 12, 94, 82, 123},
                             RowKind{2, true, 5, 16, 70, 59, 68}, RowKind{2, false, 5, 16, 70, 58, 67},
                             RowKind{3, true, 5, 16, 74, 63, 71}, RowKind{3, false, 5, 16, 74, 62, 70},
                             RowKind{4, true, 5, 16, 74, 63, 71}, RowKind{4, false, 5, 16, 74, 62, 70},
                             RowKind{7, false, 0, 4, 61, 49, 90}, RowKind{7, false, 5, 16, 74, 62, 70}),
                         [](auto const& kind) { return kind.param.text(); });

struct AclLookup : testing::Test, AclRows {
    /** Rows of version 6 in a processor per pipeline. */
    static constexpr RowKind table0{6, false, 0, 4, 61, 49, 90};
    static constexpr RowKind table2{6, false, 2, 12, 94, 82, 123};
    static constexpr RowKind table5{6, false, 5, 16, 74, 62, 70};

    AclLookup() { chipIs(6, false); }
    static RowKind with(RowKind kind, U8 combination) {
        kind.combination = combination;
        return kind;
    }
    /** A key of table 0 with a second address as it stands in keys. */
    static std::vector<U32> key0(U8 combination, U32 address, U32 maskType, U32 protocol, U32 port) {
        return pack({{0, 4, 9},
                     {4, 3, combination},
                     {7, 32, address},
                     {39, 4, protocol},
                     {43, 16, port},
                     {59, 2, maskType}});
    }
};

TEST_F(AclLookup, RowsAreAsTheyLieInRegisters) {
    // Physical table 0, shared: of the address the lowest four bits are not stored.
    chipIs(4, true);
    RowKind const shared{4, true, 0, 4, 61, 50, 91};
    auto const words = NerioTest::packed(4, {{0, 28, 0xC0A8115},
                                             {28, 4, 6},
                                             {32, 16, 443},
                                             {48, 2, 2},
                                             {50, 6, 57},
                                             {56, 1, 1},
                                             {57, 12, 0xA5A},
                                             {91, 1, 0}});
    EXPECT_EQ(row(shared, packetKey(shared), packetResult(shared)), words);
    // Physical table 5, each pipeline its own: of the first address the lowest six bits are not stored.
    auto const words5 = NerioTest::packed(
        4, {{0, 26, 0x0A010200 >> 6}, {26, 32, 0xC0A81152}, {58, 2, 2}, {60, 2, 3}, {62, 6, 57}, {70, 1, 1}});
    EXPECT_EQ(row(table5, packetKey(table5), packetResult(table5)), words5);
}

TEST_F(AclLookup, AddressesFoldTheirLengthIntoTheBitsTheyLeaveFree) {
    struct Folded {
        U8 length;
        U32 address;
        U32 maskType;
    };
    for (auto const& [length, address, maskType] :
         {Folded{32, 0xFFFEFDFF, 0}, Folded{31, 0xFFFEFDFE, 1}, Folded{30, 0xFFFEFDFF, 2},
          Folded{29, 0xFFFEFDFA, 2}, Folded{27, 0xFFFEFDE0, 2}, Folded{26, 0xFFFEFDDA, 3},
          Folded{8, 0xFF000008, 3}, Folded{1, 0x80000001, 3}, Folded{0, 0xFFFFFFFF, 3}}) {
        make();
        auto const place = write(table0, key0(4, address, maskType, 6, 443), {{0, 6, 1}});
        auto fields = packet;
        fields.secondAddress = 0xFFFEFDFF;
        fields.secondLength = length;
        auto const hit = find(table0, fields);
        ASSERT_TRUE(hit.has_value()) << int{length};
        EXPECT_EQ(hit->place, place);
    }
}

TEST_F(AclLookup, AnAddressOfZeroIsAbsentWhateverItsLength) {
    for (auto const& [length, maskType] : {std::pair{U8{32}, 0u}, {U8{31}, 1u}, {U8{28}, 2u}, {U8{8}, 3u}}) {
        make();
        write(table0, key0(4, 0xFFFFFFFF, maskType, 6, 443), {{0, 6, 1}});
        auto fields = packet;
        fields.secondAddress = 0;
        fields.secondLength = length;
        EXPECT_TRUE(find(table0, fields).has_value()) << int{length};
        if (length < 32) {
            fields.secondAddress = 1;
            EXPECT_TRUE(find(table0, fields).has_value()) << "nothing is left of it";
        }
    }
}

TEST_F(AclLookup, ThreeCombinationsDoNotLookAtTheProtocol) {
    for (U8 combination = 0; combination < 7; ++combination) {
        make();
        write(table0, key0(combination, 0xC0A81152, 2, 15, 443), {{0, 6, 1}});
        EXPECT_EQ(find(with(table0, combination), packet).has_value(), combination == 3) << int{combination};
        auto fields = packet;
        fields.protocol = 0;
        EXPECT_EQ(find(with(table0, combination), fields).has_value(), combination == 3) << int{combination};
    }
    for (U8 combination = 11; combination < 15; ++combination) {
        make();
        write(table2,
              pack({{0, 4, 9},
                    {4, 2, combination - 11u},
                    {6, 32, 0xC0A81152},
                    {38, 32, 0x0A010218},
                    {70, 4, 15},
                    {74, 16, 443},
                    {90, 2, 2},
                    {92, 2, 3}}),
              {{0, 6, 1}});
        EXPECT_EQ(find(with(table2, combination), packet).has_value(), combination == 11) << int{combination};
    }
}

TEST_F(AclLookup, APortOfZeroIsAnyPortButInTheCombinationsThatTellThemApart) {
    for (U8 combination = 0; combination < 7; ++combination) {
        U32 const protocol = combination == 3 ? 15 : 6;
        bool const apart = combination == 1 || combination == 2 || combination == 5 || combination == 6;
        auto fields = packet;
        fields.port = 0;
        auto any = packet;
        any.port.reset();
        make();
        write(table0, key0(combination, 0xC0A81152, 2, protocol, 0xFFFF), {{0, 6, 1}});
        EXPECT_EQ(find(with(table0, combination), fields).has_value(), !apart) << int{combination};
        EXPECT_TRUE(find(with(table0, combination), any).has_value()) << int{combination};
        EXPECT_FALSE(find(with(table0, combination), packet).has_value());
        fields.port = 0xFFFF;
        EXPECT_TRUE(find(with(table0, combination), fields).has_value()) << "a port that keys do not have";
        fields.port = 0;
        make();
        write(table0, key0(combination, 0xC0A81152, 2, protocol, 0), {{0, 6, 1}});
        EXPECT_EQ(find(with(table0, combination), fields).has_value(), apart) << int{combination};
        EXPECT_FALSE(find(with(table0, combination), any).has_value());
    }
}

TEST_F(AclLookup, EmptyRowsAnswerNoKey) {
    for (U16 const version : {U16{2}, U16{3}, U16{4}}) {
        for (bool const shared : {false, true}) {
            chipIs(version, shared);
            AclFields least;
            for (U8 combination = 0; combination < 18; ++combination) {
                for (U32 bit = 0; bit < 6; ++bit) {
                    least.secondAddress = bit;
                    for (auto const port : {std::optional<U16>(), std::optional<U16>(0)}) {
                        least.port = port;
                        for (U8 const protocol : {U8{0}, U8{1}}) {
                            least.protocol = protocol;
                            EXPECT_EQ(lookUp->find(least, combination, 0), std::nullopt);
                        }
                    }
                }
            }
        }
    }
}

TEST_F(AclLookup, ARowWithoutAProtocolIsNotInUse) {
    auto fields = packet;
    fields.protocol = 0;
    write(table0, key0(4, 0xC0A81152, 2, 0, 443), {{0, 6, 1}});
    EXPECT_EQ(find(table0, fields), std::nullopt);
}

TEST_F(AclLookup, AddressesOfOnesAreFoundAsTheyWereAbsent) {
    write(table5, pack({{0, 1, 1}, {1, 3, 5}, {4, 2, 1}, {6, 32, 0xFFFFFFFF}, {38, 32, 0xFFFFFFFF}}),
          {{0, 6, 1}});
    auto fields = packet;
    fields.firstLength = 32;
    fields.secondLength = 32;
    for (U32 const address : {0xFFFFFFFFu, 0u}) {
        fields.firstAddress = address;
        fields.secondAddress = address;
        EXPECT_TRUE(find(table5, fields).has_value());
    }
}

TEST_F(AclLookup, ThreeBitsOfTheVrfTakePartInTableFiveAndNoneElsewhere) {
    write(table5, packetKey(table5), {{0, 6, 1}});
    write(table0, packetKey(table0), {{0, 6, 1}});
    auto fields = packet;
    fields.vrf = 0x80 | 5;
    EXPECT_TRUE(find(table5, fields).has_value());
    fields.vrf = 4;
    EXPECT_FALSE(find(table5, fields).has_value());
    EXPECT_TRUE(find(table0, fields).has_value());
    fields.vrf = 5;
    fields.keyFlag = false;
    EXPECT_FALSE(find(table5, fields).has_value());
    EXPECT_TRUE(find(table0, fields).has_value());
}

TEST_F(AclLookup, ARuleStandsInOneOfTwoPlaces) {
    auto const ruleWith = [&](Fields const& result) {
        write(table2, packetKey(table2), result);
        auto const hit = find(table2, packet);
        return hit ? hit->rule : AclRule{99, false, 0, std::nullopt};
    };
    EXPECT_EQ(ruleWith({{0, 6, 63}, {6, 1, 1}, {7, 12, 0xFFF}, {19, 22, 0x3FFFFF}}),
              (AclRule{1, true, 0xFFF, std::nullopt}));
    EXPECT_EQ(ruleWith({{0, 6, 1}, {19, 3, 5}, {22, 6, 63}}), (AclRule{63, false, 0, std::nullopt}));
    EXPECT_EQ(ruleWith({{6, 13, 0x1FFF}, {19, 3, 5}, {22, 6, 1}, {28, 1, 1}, {29, 12, 0x801}}),
              (AclRule{63, true, 0x801, 5}));
    EXPECT_EQ(ruleWith({{19, 3, 7}, {22, 6, 63}}), (AclRule{1, false, 0, 7}));
    EXPECT_EQ(ruleWith({}), (AclRule{0, false, 0, 0})) << "no priority reads as a rule with a range";
}

TEST_F(AclLookup, BelowVersionFourARowHasTwoRulesAndElevenBitsOfCounter) {
    chipIs(3, false);
    RowKind const kind{3, false, 0, 4, 61, 49, 73};
    write(kind, packetKey(kind), {{6, 1, 1}, {7, 4, 15}, {12, 12, 0xFFF}});
    EXPECT_EQ(find(kind, packet)->rule, (AclRule{0, true, 0x7FF, std::nullopt}));
    EXPECT_EQ(find(kind, packet)->secondRule, (AclRule{1, false, 0, std::nullopt}));
    write(kind, packetKey(kind), {{0, 6, 1}, {7, 4, 1}, {11, 1, 1}});
    EXPECT_EQ(find(kind, packet)->rule, (AclRule{63, false, 0, std::nullopt}));
    EXPECT_EQ(find(kind, packet)->secondRule, (AclRule{15, true, 0, std::nullopt}));
}

TEST_F(AclLookup, TableFiveHasAFlagInVersionTwoAndIsAlwaysFlaggedLater) {
    for (U16 const version : {U16{2}, U16{3}, U16{4}}) {
        chipIs(version, false);
        RowKind const kind{version,
                           false,
                           5,
                           16,
                           version == 2 ? 70u : 74u,
                           version == 2 ? 58u : 62u,
                           version == 2 ? 67u : 70u};
        write(kind, packetKey(kind), {{0, 6, 1}});
        EXPECT_EQ(find(kind, packet)->rule, (AclRule{63, version != 2, 0, std::nullopt}));
    }
}

TEST_F(AclLookup, TheFirstWayIsTakenWhileAnEntryStandsInBoth) {
    write(table0, packetKey(table0), {{0, 6, 1}}, 1);
    auto const first = write(table0, packetKey(table0), {{0, 6, 2}}, 0);
    EXPECT_EQ(find(table0, packet)->place, first);
}

TEST_F(AclLookup, RowsThatShorterWaysDoNotHaveAreNotFound) {
    profile->layouts[acl].size = 1024;
    make();
    U32 found = 0;
    for (U16 port = 1; port < 200; ++port) {
        auto const key = key0(4, 0xC0A81152, 2, 6, port);
        bool const within = rowOf(table0, key, 0) < 1024;
        if (within) write(table0, key, {{0, 6, 1}});
        auto fields = packet;
        fields.port = port;
        EXPECT_EQ(find(table0, fields).has_value(), within);
        found += within ? 1 : 0;
    }
    EXPECT_GT(found, 20u);
    EXPECT_LT(found, 100u);
}

TEST_F(AclLookup, RefusesWhatIsOutOfRange) {
    auto const failure = [&](AclFields const& fields, U8 combination = 0, U32 pipeline = 0) -> std::string {
        try {
            lookUp->find(fields, combination, pipeline);
        } catch (Belmo::RangeException const& refused) {
            return refused.what();
        }
        return {};
    };
    EXPECT_EQ(failure(packet), "");
    EXPECT_EQ(failure(packet, 18), "ACL lookup: combination 18 is above 17");
    EXPECT_EQ(failure(packet, 0, 2), "ACL lookup: there is no pipeline 2");
    auto fields = packet;
    fields.aclId = 16;
    EXPECT_EQ(failure(fields), "ACL lookup: ACL number 16 is above 15");
    fields = packet;
    fields.protocol = 16;
    EXPECT_EQ(failure(fields), "ACL lookup: protocol 16 is above 15");
    fields = packet;
    fields.secondLength = 33;
    EXPECT_EQ(failure(fields), "ACL lookup: address length 33 is above 32");
    fields.aclId = 16;
    fields.protocol = 16;
    fields.secondLength = 255;
    EXPECT_EQ(failure(fields, 16), "ACL lookup: address length 255 is above 32");
    fields.secondLength = 32;
    EXPECT_EQ(failure(fields, 16), "") << "table 5 has neither ACL number nor protocol";
    fields = packet;
    fields.firstLength = 255;
    EXPECT_EQ(failure(fields, 4), "") << "table 0 has no first address";
    profile->hwApi = {1, 9};
    EXPECT_THROW(Chip::AclLookup(*chip, *profile), Belmo::RangeException);
    profile->hwApi = {6, 0};
    profile->layouts[acl].size = 0;
    EXPECT_THROW(make(), Belmo::RangeException);
}

}  // namespace

// Row layouts as tools see them: what every family tells, and rows in the words of their layouts.
#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "CasesOfProfile.h"
#include "FamilyModel.h"
#include "agent/RowDecoder.h"
#include "agent/RowText.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioTest;
using Agent::anyRow;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::RowField;
using NerioSwitchApi::rowFields;
using NerioSwitchApi::rowLayout;
using NerioSwitchApi::RowLayout;
using Words = std::array<U32, NerioSwitchApi::maxEntryWords>;

/** The bits that a layout's fields have. */
Words bitsOf(RowLayout const& layout) {
    Words bits{};
    for (auto const& field : layout.fields) {
        for (U32 bit = field.first; bit < field.end(); ++bit)
            bits[bit / 32] |= U32{1} << bit % 32;
    }
    return bits;
}

void expectSound(RowLayout const& layout) {
    EXPECT_GT(layout.words, 0u);
    EXPECT_LE(layout.words, NerioSwitchApi::maxEntryWords);
    EXPECT_LE(layout.firstRow, layout.lastRow);
    EXPECT_FALSE(layout.fields.empty());
    std::set<std::string> names;
    U32 end = 0;
    for (auto const& field : layout.fields) {
        EXPECT_TRUE(names.insert(field.name).second) << field.name << " stands twice";
        EXPECT_FALSE(field.name.empty());
        EXPECT_GE(field.first, end) << field.name << " shares a bit with the one before it";
        EXPECT_GT(field.width, 0u) << field.name;
        EXPECT_LE(field.width, 64u) << field.name;
        end = field.end();
    }
    EXPECT_LE(end, 32 * layout.words);
}

/** How many layouts say that they hold a row: one without a condition does if no other does. */
std::size_t formsOf(std::vector<RowLayout> const& layouts, Words const& words, HwIndex row) {
    std::size_t holding = 0;
    std::size_t others = 0;
    for (auto const& layout : layouts) {
        if (row < layout.firstRow || row > layout.lastRow) continue;
        if (!layout.holds) {
            ++others;
        } else if (layout.holds(words)) {
            ++holding;
        }
    }
    return holding == 0 ? others : holding;
}

/** Each row that the shadow holds has one form, and no bit outside of its fields. */
void expectRowsOfTheirLayouts(NerioSwitchApi::SwTableProfileConvertor const& convertor, U32 id) {
    auto const layouts = convertor.rowLayouts(id);
    auto const& descriptor = *convertor.descriptor(id);
    SCOPED_TRACE(descriptor.name());
    ASSERT_FALSE(layouts.empty());
    std::vector<Words> bits;
    for (auto const& layout : layouts) {
        expectSound(layout);
        bits.push_back(bitsOf(layout));
    }
    auto const& table = *convertor.hwTable(id);
    for (U64 number = descriptor.firstIndex(); number <= descriptor.lastIndex(); ++number) {
        auto const row = static_cast<HwIndex>(number);
        auto const* stored = table.storedWords(row);
        if (stored == nullptr) continue;
        Words words{};
        std::copy_n(stored, words.size(), words.begin());
        ASSERT_EQ(formsOf(layouts, words, row), 1u) << "row " << row;
        auto const* layout = Agent::layoutOf(layouts, words, row);
        ASSERT_NE(layout, nullptr) << "row " << row;
        auto const& named = bits[static_cast<std::size_t>(layout - layouts.data())];
        for (std::size_t word = 0; word < words.size(); ++word) {
            ASSERT_EQ(words[word] & ~named[word], 0u)
                << "row " << row << " word " << word << " has bits of no field";
        }
    }
}

/** Where the words of a row tell its number, it is the row's; asked of every thirteenth row. */
void expectRowsTold(Agent::HwTableShape const& shape, NerioSwitchApi::HwTableConfig const& table) {
    SCOPED_TRACE(shape.id);
    for (U64 number = shape.firstRow; number <= shape.lastRow; number += 13) {
        auto const row = static_cast<HwIndex>(number);
        auto const* stored = table.storedWords(row);
        if (stored == nullptr) continue;
        auto const told = Agent::rowToldBy(shape, std::span(stored, NerioSwitchApi::maxEntryWords));
        ASSERT_EQ(told.value_or(row), row);
    }
}

class RowLayoutTest : public ::testing::TestWithParam<char const*> {};

TEST_P(RowLayoutTest, OfEveryTableNamesEveryBitThatAnyEntrySets) {
    Random random(20267);
    auto const profile = NerioSwitch::profilePreset(GetParam());
    NerioSwitchApi::TableFramework framework(profile, Chip::simulatedChip(*profile),
                                             NerioSwitchApi::memoryShadowStore());
    for (auto const& family : casesOfProfile(*profile)) {
        SCOPED_TRACE(family.spec.name);
        auto const table = Agent::makeTable(family.spec);
        framework.tableIs(table->table(), NerioSwitchApi::StartMode::cold);
        for (auto const& operation : randomOperations(family, *profile, random, 24))
            carryOut(operation, *table);
        auto const& convertor = table->table()->profileConvertorPtr();
        if (!convertor) continue;
        EXPECT_FALSE(convertor->descriptors().empty());
        for (auto const& [id, descriptor] : convertor->descriptors())
            expectRowsOfTheirLayouts(*convertor, id);
        for (auto const& shape : Agent::hwTableShapes(family.spec, profile))
            expectRowsTold(shape, *convertor->hwTable(shape.id));
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Generations, RowLayoutTest,
                         ::testing::Values("api2", "api3", "api4", "api5", "api6", "api7", "api8", "api9",
                                           "api10", "default"),
                         [](auto const& preset) { return std::string(preset.param); });

TEST(RowLayoutFormTest, RowsThatTwoTablesShareHaveTheFormsOfBoth) {
    Random random(29);
    auto const profile = NerioSwitch::profilePreset("default");
    NerioSwitchApi::TableFramework framework(profile, Chip::simulatedChip(*profile),
                                             NerioSwitchApi::memoryShadowStore());
    std::vector<std::unique_ptr<Agent::JsonTable>> tables;
    for (auto const* name : {"lpm29", "starG"}) {
        auto const found =
            std::ranges::find(familyCases(), name, [](auto const& each) { return each.spec.family; });
        auto& table = tables.emplace_back(Agent::makeTable(found->spec));
        framework.tableIs(table->table(), NerioSwitchApi::StartMode::cold);
        for (auto const& operation : randomOperations(*found, *profile, random, 40))
            carryOut(operation, *table);
    }
    auto const& convertor = *tables.front()->table()->profileConvertorPtr();
    auto const layouts = convertor.rowLayouts(0);
    ASSERT_EQ(layouts.size(), 2u);
    EXPECT_EQ(layouts[0].name, "route");
    EXPECT_EQ(layouts[1].name, "multicast");
    expectRowsOfTheirLayouts(convertor, 0);
}

TEST(RowLayoutFormTest, FieldsComeInTheOrderOfTheirBitsAndThoseOfOneNameAreNumbered) {
    NerioSwitchTable::BitField const none{"none", 0, 0};
    NerioSwitchTable::BitField const high{"cell", 8, 4};
    std::array const others{NerioSwitchTable::BitField{"cell", 4, 4},
                            NerioSwitchTable::BitField{"valid", 0, 1}};
    auto const layout = rowLayout(1, rowFields(none, high, others, RowField("made", 12, 2)), "a form");
    EXPECT_EQ(layout.name, "a form");
    EXPECT_EQ(layout.words, 1u);
    EXPECT_EQ(layout.fields,
              (std::vector<RowField>{{"valid", 0, 1}, {"cell0", 4, 4}, {"cell1", 8, 4}, {"made", 12, 2}}));
}

/** Two forms told apart by bit 31, and one of row 3 alone. */
std::vector<RowLayout> twoForms() {
    auto const hasBit = [](std::span<U32 const> words) { return words[0] >> 31 != 0; };
    auto interval = rowLayout(1, {{"interval", 0, 32}}, "interval");
    interval.firstRow = interval.lastRow = 3;
    return {
        interval,
        rowLayout(2, {{"mode", 0, 2}, {"mask", 4, 20}, {"form", 31, 1}, {"wide", 40, 24}}, "high", hasBit),
        rowLayout(2, {{"mode", 0, 2}, {"across", 28, 8}}, "low")};
}

TEST(RowTextTest, FindsTheLayoutOfARowByItsWordsAndItsNumber) {
    auto const layouts = twoForms();
    auto const nameOf = [&](U32 word, HwIndex row) {
        return Agent::layoutOf(layouts, std::array{word}, row)->name;
    };
    EXPECT_EQ(nameOf(0x80000000, 0), "high");
    EXPECT_EQ(nameOf(0x7FFFFFFF, 0), "low");
    EXPECT_EQ(nameOf(0x80000000, 3), "interval");
    EXPECT_EQ(nameOf(0x7FFFFFFF, anyRow), "low");
    EXPECT_EQ(Agent::layoutOf({}, std::array{U32{1}}), nullptr);
}

TEST(RowTextTest, TellsDifferencesFieldByField) {
    auto const layouts = twoForms();
    auto const text = [&](std::vector<U32> const& expected, std::vector<U32> const& held, HwIndex row) {
        return Agent::differenceText(layouts, expected, held, row);
    };
    EXPECT_EQ(text({5, 6}, {5, 6}, 0), "");
    EXPECT_EQ(text({1, 0}, {0, 0}, 0), "mode: 0 instead of 1");
    EXPECT_EQ(text({0x90000001, 0}, {0x90000012, 0x00000300}, 0),
              "mode: 2 instead of 1, mask: 0x1 instead of 0x0, wide: 0x3 instead of 0x0");
    EXPECT_EQ(text({0x10000000, 2}, {0x20000000, 1}, anyRow), "across: 18 instead of 33");
    EXPECT_EQ(text({7}, {9}, 3), "interval: 0x9 instead of 0x7");
}

TEST(RowTextTest, TellsBitsOfNoFieldAndAnotherForm) {
    auto const layouts = twoForms();
    EXPECT_EQ(Agent::differenceText(layouts, std::array{U32{0x04}}, std::array{U32{0x0C}}),
              "bits of no field in word 0: 0x00000008 instead of 0x00000000");
    EXPECT_EQ(Agent::differenceText(layouts, std::array{U32{0}, U32{0}}, std::array{U32{0x80000000}, U32{0}}),
              "form: high instead of low, across: 8 instead of 0");
    EXPECT_EQ(Agent::differenceText(layouts, std::array{U32{0}}, std::array{U32{0}, U32{0}, U32{1}}),
              "bits of no field in word 2: 0x00000001 instead of 0x00000000");
}

TEST(RowTextTest, TellsWordsWhereThereIsNoLayout) {
    EXPECT_EQ(
        Agent::differenceText({}, std::array{U32{1}, U32{2}, U32{4}}, std::array{U32{1}, U32{3}, U32{5}}),
        "word 1: 0x00000003 instead of 0x00000002, word 2: 0x00000005 instead of 0x00000004");
}

TEST(RowTextTest, ReadsFieldsOfAnyPlaceAndNamesTheirBits) {
    std::array const words{U32{0xF0000000}, U32{0xFFFFFFFF}, U32{0x3}};
    EXPECT_EQ(Agent::valueIn({"", 28, 38}, words), 0x3FFFFFFFFFu);
    EXPECT_EQ(Agent::valueIn({"", 0, 28}, words), 0u);
    EXPECT_EQ(Agent::valueIn({"", 65, 64}, words), 1u) << "words that are not there are zeros";
    EXPECT_EQ(Agent::bitsText(68, 16), "word 2, bits 19:4");
    EXPECT_EQ(Agent::bitsText(5, 1), "word 0, bit 5");
    EXPECT_EQ(Agent::bitsText(67, 25), "word 2, bits 27:3");
    EXPECT_EQ(Agent::bitsText(67, 40), "words 2 and 3, bits 42:3");
    EXPECT_EQ(Agent::bitsText(31, 40), "words 0 to 2, bits 70:31");
    EXPECT_EQ(Agent::valueText({"", 0, 16}, 65535), "65535");
    EXPECT_EQ(Agent::valueText({"", 0, 17}, 65535), "0xFFFF");
}

}  // namespace

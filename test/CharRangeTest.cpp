#include <cmath>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <limits>
#include <rapidcheck/gtest.h>
#include <string>

#include "Belmo/Exceptions.h"
#include "Sorn/CharRange.h"
#include "Sorn/Format.h"

#include "FailureText.h"

namespace {

using Sorn::CharRange;

template <class Work>
std::string refusal(char const* text, Work const& work) {
    CharRange range(text);
    auto failure = failureOf<Belmo::DeserializationException>([&] { work(range); });
    EXPECT_EQ(range.rest(), text) << "a refusal takes nothing";
    return failure;
}

TEST(CharRange, TakesATextOrNothing) {
    CharRange range("access,5");
    EXPECT_FALSE(range.take("trunk"));
    EXPECT_EQ(range.rest(), "access,5");
    EXPECT_TRUE(range.take("access"));
    EXPECT_TRUE(range.take(""));
    EXPECT_EQ(range.rest(), ",5");
    EXPECT_FALSE(range.take(",55"));
    EXPECT_TRUE(range.take(",5"));
    EXPECT_TRUE(range.empty());
}

TEST(CharRange, ExpectsATextOrSaysWhatItFound) {
    CharRange range("(5)");
    range.expect("(");
    EXPECT_EQ(range.rest(), "5)");
    EXPECT_EQ(refusal("5)", [](CharRange& text) { text.expect("("); }), "expected \"(\", found \"5)\"");
    EXPECT_EQ(refusal("", [](CharRange& text) { text.expect("("); }), "expected \"(\", found \"\"");
}

TEST(CharRange, ShowsTheFirst40CharactersOfWhatItFound) {
    std::string const tooLong(50, 'x');
    EXPECT_EQ(refusal(tooLong.c_str(), [](CharRange& text) { text.expect("y"); }),
              fmt::format("expected \"y\", found \"{}\"", std::string(40, 'x')));
}

TEST(CharRange, ExpectsItsEnd) {
    EXPECT_NO_THROW(CharRange("").expectEnd());
    EXPECT_EQ(refusal(" ", [](CharRange& text) { text.expectEnd(); }), "expected the end, found \" \"");
}

TEST(CharRange, TakesUntilAStopOrTheEnd) {
    CharRange range("one,two:three");
    EXPECT_EQ(range.takeUntil(":,"), "one");
    EXPECT_EQ(range.takeUntil(","), "");
    range.expect(",");
    EXPECT_EQ(range.takeUntil(";"), "two:three");
    EXPECT_TRUE(range.empty());
    EXPECT_EQ(range.takeUntil(","), "");
}

TEST(CharRange, TakesDecimalAndHexadecimalNumbers) {
    CharRange range("5,0x1F,0XaB,007,18446744073709551615,0xFFFFFFFFFFFFFFFF;");
    for (U64 const number : {U64{5}, U64{0x1F}, U64{0xAB}, U64{7}, ~U64{0}, ~U64{0}}) {
        EXPECT_EQ(range.takeNumber(), number);
        range.take(",");
    }
    EXPECT_EQ(range.rest(), ";");
}

TEST(CharRange, RefusesWhatIsNoNumber) {
    auto const number = [](CharRange& text) { text.takeNumber(); };
    for (char const* text :
         {"", "-1", "+1", " 1", "x1", "0x", "0xg", "0x-1", "18446744073709551616", "0x10000000000000000"})
        EXPECT_EQ(refusal(text, number), fmt::format("expected a number, found \"{}\"", text));
}

TEST(CharRange, TakesReals) {
    CharRange range("1.5,-2e3,inf,7)");
    EXPECT_EQ(range.takeReal<double>(), 1.5);
    range.expect(",");
    EXPECT_EQ(range.takeReal<float>(), -2000.0f);
    range.expect(",");
    EXPECT_EQ(range.takeReal<double>(), std::numeric_limits<double>::infinity());
    range.expect(",");
    EXPECT_EQ(range.takeReal<float>(), 7.0f);
    EXPECT_EQ(range.rest(), ")");
}

TEST(CharRange, RefusesWhatIsNoReal) {
    auto const real = [](CharRange& text) { text.takeReal<double>(); };
    for (char const* text : {"", "x", "nan", "1e999"})
        EXPECT_EQ(refusal(text, real), fmt::format("expected a number, found \"{}\"", text));
    EXPECT_EQ(refusal("1e39", [](CharRange& text) { text.takeReal<float>(); }),
              "expected a number, found \"1e39\"");
}

TEST(CharRange, RoundsAFloatOnce) {
    // A hair above the middle of 1 and the next float; as a double it is the middle itself.
    CharRange range("1.00000005960464477540");
    EXPECT_EQ(range.takeReal<float>(), std::nextafter(1.0f, 2.0f));
}

RC_GTEST_PROP(CharRange, TakesEveryNumberThatIsPrinted, (U64 number)) {
    auto const texts = {std::to_string(number), Sorn::_fmt("0x%lx", number)};
    for (auto const& text : texts) {
        CharRange range(text);
        RC_ASSERT(range.takeNumber() == number);
        RC_ASSERT(range.empty());
    }
}

TEST(Format, WritesAsPrintfDoes) {
    EXPECT_EQ(Sorn::_fmt("%s:%d:0x%012lx", "port", -5, 0xABCul), "port:-5:0x000000000abc");
    EXPECT_EQ(Sorn::_fmt("100%%"), "100%");
    EXPECT_EQ(Sorn::_fmt("%s", ""), "");
    std::string const longText(5000, 'x');
    EXPECT_EQ(Sorn::_fmt("<%s>", longText.c_str()), "<" + longText + ">");
}

TEST(Format, PadsTrueToTheWidthOfFalse) {
    EXPECT_STREQ(Sorn::paddedBool(true), "true ");
    EXPECT_STREQ(Sorn::paddedBool(false), "false");
}

}  // namespace

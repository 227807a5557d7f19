#include <algorithm>
#include <cstddef>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "Sorn/Trace.h"

#include "FormatCount.h"

namespace {

using NerioTest::FormatCount;

struct Line {
    std::string handle;
    int level;
    std::string text;
    friend bool operator==(Line const&, Line const&) = default;
};

class Trace : public testing::Test {
protected:
    Trace() {
        previous_ = Sorn::traceSinkIs([this](Sorn::TraceRecord const& record) {
            lines_.push_back({std::string(record.handle), record.level, std::string(record.text)});
        });
    }
    ~Trace() override { Sorn::traceSinkIs(std::move(previous_)); }

    std::vector<Line> lines_;
    Sorn::TraceSink previous_;
};

TEST_F(Trace, IsOffAtFirst) {
    Sorn::TraceHandle const handle("TraceTest");
    EXPECT_EQ(handle.name(), "TraceTest");
    EXPECT_EQ(handle.level(), 0);
    for (int level = 1; level <= 9; ++level)
        SORN_TRACE(handle, level, "nothing");
    EXPECT_TRUE(lines_.empty());
}

TEST_F(Trace, PassesLevelsUpToItsOwn) {
    Sorn::TraceHandle handle("TraceTest");
    handle.levelIs(6);
    EXPECT_TRUE(handle.enabled(6));
    EXPECT_FALSE(handle.enabled(7));
    SORN_TRACE(handle, 7, "row {}", 1);
    SORN_TRACE(handle, 6, "row {} of {}", 2, "ten");
    SORN_TRACE(handle, 3, "plain");
    EXPECT_EQ(lines_, (std::vector<Line>{{"TraceTest", 6, "row 2 of ten"}, {"TraceTest", 3, "plain"}}));
}

TEST_F(Trace, EvaluatesAndFormatsNothingWhileItIsDisabled) {
    Sorn::TraceHandle handle("TraceTest");
    int evaluated = 0;
    FormatCount argument;
    auto const evaluate = [&]() -> FormatCount const& {
        ++evaluated;
        return argument;
    };
    handle.levelIs(5);
    SORN_TRACE(handle, 6, "{}", evaluate());
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(argument.formatted, 0);
    handle.levelIs(6);
    SORN_TRACE(handle, 6, "{}", evaluate());
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(argument.formatted, 1);
}

TEST_F(Trace, IsOneStatement) {
    Sorn::TraceHandle handle("TraceTest");
    handle.levelIs(1);
    if (lines_.empty())
        SORN_TRACE(handle, 1, "then");
    else
        SORN_TRACE(handle, 1, "else");
    ASSERT_EQ(lines_.size(), 1u);
    EXPECT_EQ(lines_[0].text, "then");
}

TEST_F(Trace, LevelsAreSetByNameOrByItsBeginning) {
    Sorn::TraceHandle acl("TraceTestAcl");
    Sorn::TraceHandle aclRange("TraceTestAclRange");
    Sorn::TraceHandle lag("TraceTestLag");
    auto const levels = [&] { return std::vector{acl.level(), aclRange.level(), lag.level()}; };
    EXPECT_EQ(Sorn::traceLevelIs("TraceTestAcl", 6), 1);
    EXPECT_EQ(levels(), (std::vector{6, 0, 0}));
    EXPECT_EQ(Sorn::traceLevelIs("TraceTestAcl*", 8), 2);
    EXPECT_EQ(levels(), (std::vector{8, 8, 0}));
    EXPECT_EQ(Sorn::traceLevelIs("TraceTest*", 9), 3);
    EXPECT_EQ(levels(), (std::vector{9, 9, 9}));
    EXPECT_EQ(Sorn::traceLevelIs("TraceTest", 1), 0);
    EXPECT_EQ(Sorn::traceLevelIs("Acl", 1), 0);
    EXPECT_EQ(levels(), (std::vector{9, 9, 9}));
}

TEST_F(Trace, LevelsOfAllHandlesAreSetByAStar) {
    Sorn::TraceHandle const handle("TraceTest");
    std::vector<int> before;
    for (auto const* each : Sorn::traceHandles())
        before.push_back(each->level());
    EXPECT_EQ(Sorn::traceLevelIs("*", 4), static_cast<int>(Sorn::traceHandles().size()));
    for (std::size_t i = 0; i < before.size(); ++i) {
        auto* each = Sorn::traceHandles()[i];
        EXPECT_EQ(each->level(), 4) << each->name();
        each->levelIs(before[i]);
    }
}

TEST_F(Trace, HandlesAreListedAsLongAsTheyLive) {
    auto const listed = [](char const* name) {
        return std::ranges::count(Sorn::traceHandles(), name,
                                  [](auto const* handle) { return handle->name(); });
    };
    EXPECT_EQ(listed("TraceTestGone"), 0);
    {
        Sorn::TraceHandle const handle("TraceTestGone");
        EXPECT_EQ(listed("TraceTestGone"), 1);
    }
    EXPECT_EQ(listed("TraceTestGone"), 0);
    EXPECT_EQ(Sorn::traceLevelIs("TraceTestGone", 5), 0);
}

TEST_F(Trace, SinkIsReplacedAndGivenBack) {
    Sorn::TraceHandle handle("TraceTest");
    handle.levelIs(1);
    std::vector<std::string> other;
    auto const mine =
        Sorn::traceSinkIs([&](Sorn::TraceRecord const& record) { other.emplace_back(record.text); });
    SORN_TRACE(handle, 1, "to the other");
    EXPECT_TRUE(lines_.empty());
    EXPECT_TRUE(Sorn::traceSinkIs(mine));
    SORN_TRACE(handle, 1, "to the first");
    EXPECT_EQ(other, std::vector<std::string>{"to the other"});
    ASSERT_EQ(lines_.size(), 1u);
    EXPECT_EQ(lines_[0].text, "to the first");
}

TEST_F(Trace, GoesToStandardErrorWithoutASink) {
    Sorn::TraceHandle handle("TraceTest");
    handle.levelIs(6);
    auto mine = Sorn::traceSinkIs(nullptr);
    testing::internal::CaptureStderr();
    SORN_TRACE(handle, 6, "programmed {}", 5);
    auto const output = testing::internal::GetCapturedStderr();
    Sorn::traceSinkIs(std::move(mine));
    EXPECT_TRUE(output.ends_with(" TraceTest 6: programmed 5\n")) << output;
    EXPECT_TRUE(lines_.empty());
}

}  // namespace

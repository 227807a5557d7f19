#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Pairlog/Pairlog.h"

#include "FormatCount.h"
#include "TraceCapture.h"

namespace {

using Lines = std::vector<std::string>;
using NerioTest::FormatCount;

class Pairlog : public testing::Test {
protected:
    Pairlog() { Rillog::ring().clear(); }
    ~Pairlog() override {
        Rillog::ring().levelIs(0);
        Rillog::ring().clear();
    }

    void levelsAre(int handleLevel, int ringLevel) {
        handle_.levelIs(handleLevel);
        Rillog::ring().levelIs(ringLevel);
    }
    static Lines inRing() {
        Lines lines;
        for (auto const& record : Rillog::ring().records())
            lines.push_back(record.handle + " " + std::to_string(record.level) + ": " + record.text);
        return lines;
    }

    Sorn::TraceHandle handle_{"PairlogTest"};
    NerioTest::TraceCapture trace_{"PairlogTest", 0};
};

TEST_F(Pairlog, GoesToBothAndFormatsOnce) {
    levelsAre(6, 8);
    FormatCount const argument;
    PAIRLOG(handle_, 6, "{} {}", argument, 7);
    EXPECT_EQ(trace_.lines(), Lines{"counted 7"});
    EXPECT_EQ(inRing(), Lines{"PairlogTest 6: counted 7"});
    EXPECT_EQ(argument.formatted, 1);
}

TEST_F(Pairlog, GoesToTheHandleAlone) {
    levelsAre(6, 5);
    PAIRLOG(handle_, 6, "line");
    EXPECT_EQ(trace_.lines(), Lines{"line"});
    EXPECT_EQ(inRing(), Lines{});
}

TEST_F(Pairlog, GoesToTheRingAlone) {
    levelsAre(5, 6);
    PAIRLOG(handle_, 6, "line");
    EXPECT_EQ(trace_.lines(), Lines{});
    EXPECT_EQ(inRing(), Lines{"PairlogTest 6: line"});
}

TEST_F(Pairlog, EvaluatesAndFormatsNothingForNeither) {
    levelsAre(5, 5);
    int evaluated = 0;
    FormatCount const argument;
    PAIRLOG(handle_, 6, "{} {}", argument, ++evaluated);
    EXPECT_EQ(trace_.lines(), Lines{});
    EXPECT_EQ(inRing(), Lines{});
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(argument.formatted, 0);
}

TEST_F(Pairlog, TakesArgumentsOfAnyName) {
    levelsAre(6, 6);
    std::string const line = "line";
    std::string const level = "level";
    int const handle = 1;
    PAIRLOG(handle_, 6, "{} {} {}", line, level, handle);
    EXPECT_EQ(trace_.lines(), Lines{"line level 1"});
}

}  // namespace

#pragma once

#include <fmt/format.h>

namespace NerioTest {

/** Something to trace that counts how often it is formatted. */
struct FormatCount {
    mutable int formatted = 0;
};

}  // namespace NerioTest

template <>
struct fmt::formatter<NerioTest::FormatCount> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    auto format(NerioTest::FormatCount const& count, format_context& context) const {
        ++count.formatted;
        return format_to(context.out(), "counted");
    }
};

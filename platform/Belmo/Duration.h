#pragma once

#include <compare>
#include <limits>

#include "Belmo/Types.h"
#include "Sorn/Hash.h"

namespace Belmo {

/** Seconds as a double. Plus infinity stands for never. */
class Duration {
public:
    constexpr Duration() = default;
    constexpr explicit Duration(double seconds) : seconds_(seconds) {}
    static constexpr Duration never() { return Duration(std::numeric_limits<double>::infinity()); }

    constexpr double seconds() const { return seconds_; }
    constexpr bool isNever() const { return seconds_ == std::numeric_limits<double>::infinity(); }

    friend constexpr bool operator==(Duration, Duration) = default;
    friend constexpr auto operator<=>(Duration, Duration) = default;  // NOLINT(modernize-use-nullptr)
    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(seconds_, seed); }

private:
    double seconds_ = 0;
};

}  // namespace Belmo

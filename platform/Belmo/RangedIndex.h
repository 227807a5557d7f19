#pragma once

#include <compare>
#include <concepts>
#include <utility>

#include "Belmo/Exceptions.h"
#include "Belmo/Types.h"
#include "Sorn/CharRange.h"
#include "Sorn/Hash.h"

namespace Belmo {

/**
 * An unsigned number with a range of its own. Traits say what it is: `Representation`, `first` and `last`
 * (the legal values, inclusive), `initial` (the default), `rangeText` (the exact text of the failure), and
 * any named values. A number outside the range throws `Belmo::RangeException`; it is never cut to fit.
 */
template <class Traits>
class RangedIndex : public Traits {
public:
    using Representation = typename Traits::Representation;

    constexpr RangedIndex() = default;

    template <std::integral Number>
    constexpr RangedIndex(Number number) : value_(checked(number)) {}  // NOLINT: an index is its number

    constexpr Representation value() const { return value_; }

    friend constexpr bool operator==(RangedIndex const& left, RangedIndex const& right) {
        return left.value_ == right.value_;
    }
    friend constexpr auto operator<=>(RangedIndex const& left, RangedIndex const& right) {
        return left.value_ <=> right.value_;
    }

    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(value_, seed); }
    String text() const { return std::to_string(value_); }
    static RangedIndex fromText(Sorn::CharRange& range) { return RangedIndex(range.takeNumber()); }

private:
    template <std::integral Number>
    static constexpr Representation checked(Number number) {
        bool const tooLow = std::cmp_less(number, Traits::first);
        if (tooLow || std::cmp_greater(number, Traits::last)) throw RangeException(Traits::rangeText);
        return static_cast<Representation>(number);
    }

    Representation value_ = Traits::initial;
};

/**
 * Defines the index type `name` of namespace `space`: numbers from the named value `least` to the named value
 * `most`, by default the named value `initialName`. A failure names the bounds as they are named.
 */
#define BELMO_INDEX(space, name, representation, least, leastValue, most, mostValue, initialName)   \
    struct name##Traits {                                                                           \
        using Representation = representation;                                                      \
        static constexpr Representation least = leastValue;                                         \
        static constexpr Representation most = mostValue;                                           \
        static constexpr Representation first = least;                                              \
        static constexpr Representation last = most;                                                \
        static constexpr Representation initial = initialName;                                      \
        static constexpr char const* rangeText =                                                    \
            #space "::" #name "::value < " #space "::" #name "::" #least " or > " #space "::" #name \
                   "::" #most " not allowed";                                                       \
    };                                                                                              \
    using name = ::Belmo::RangedIndex<name##Traits>

/** A type made of `RangedIndex`. */
template <class T>
concept IsRangedIndex = requires {
    typename T::Representation;
}
&&requires(T const& index) {
    { T::rangeText } -> std::convertible_to<char const*>;
    { index.value() } -> std::same_as<typename T::Representation>;
};

}  // namespace Belmo

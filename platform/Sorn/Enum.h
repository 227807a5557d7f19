#pragma once

#include <array>
#include <boost/preprocessor.hpp>
#include <cstddef>
#include <string_view>
#include <type_traits>

#include "Belmo/Types.h"

namespace Sorn {

/** One named value of an enumeration. */
template <class Enum>
struct Enumerator {
    Enum value;
    std::string_view name;
};

/** An enumeration described with SORN_ENUM. */
template <class T>
concept DescribedEnum = std::is_enum_v<T> && requires(T value) {
    enumerators(value);
};

/** The name of an enumerator; empty for a number without one. */
template <DescribedEnum Enum>
constexpr std::string_view enumName(Enum value) {
    for (auto const& enumerator : enumerators(value)) {
        if (enumerator.value == value) return enumerator.name;
    }
    return {};
}

}  // namespace Sorn

#define SORN_ENUM_VALUE(r, Enum, pair) BOOST_PP_TUPLE_ELEM(0, pair) = BOOST_PP_TUPLE_ELEM(1, pair),
#define SORN_ENUM_NAME(r, Enum, pair)                            \
    ::Sorn::Enumerator<Enum>{Enum::BOOST_PP_TUPLE_ELEM(0, pair), \
                             BOOST_PP_STRINGIZE(BOOST_PP_TUPLE_ELEM(0, pair))},

/**
 * Declares `enum class Enum : Representation` from (name, value) pairs, once, for the code and for every
 * text form. A number without a name is a legal value of the type: hardware can hold one.
 */
#define SORN_ENUM(Enum, Representation, ...)                                                       \
    enum class Enum : Representation {                                                             \
        BOOST_PP_SEQ_FOR_EACH(SORN_ENUM_VALUE, Enum, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))        \
    };                                                                                             \
    [[maybe_unused]] constexpr auto enumerators(Enum) {                                            \
        return std::to_array<::Sorn::Enumerator<Enum>>(                                            \
            {BOOST_PP_SEQ_FOR_EACH(SORN_ENUM_NAME, Enum, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))}); \
    }                                                                                              \
    static_assert(true)

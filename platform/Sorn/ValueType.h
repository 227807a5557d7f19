#pragma once

#include <boost/preprocessor.hpp>
#include <compare>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Belmo/Types.h"
#include "Sorn/Attributes.h"
#include "Sorn/CharRange.h"
#include "Sorn/Text.h"

/*
 * SORN_VALUE_TYPE(Namespace, Type, (AttributeType, name, default)...), first line of a value type's body.
 *
 * From this one list follow: the members with their defaults, for each attribute a reader `name()` and a
 * mutator `nameIs(value)` (which returns the object, so that calls chain), equality and order by the
 * attributes in order, `hash(seed)`, the text form and its parsing, and the JSON form of the tools.
 */
#define SORN_VALUE_TYPE(Namespace, Type, ...) \
    SORN_VALUE_TYPE_SEQ(Namespace, Type, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))

#define SORN_ATTRIBUTE_TYPE(attribute) BOOST_PP_TUPLE_ELEM(0, attribute)
#define SORN_ATTRIBUTE_NAME(attribute) BOOST_PP_TUPLE_ELEM(1, attribute)
#define SORN_ATTRIBUTE_DEFAULT(attribute) BOOST_PP_TUPLE_ELEM(2, attribute)
#define SORN_ATTRIBUTE_MEMBER(attribute) BOOST_PP_CAT(SORN_ATTRIBUTE_NAME(attribute), _)

#define SORN_DECLARE_MEMBER(r, Type, attribute) \
    SORN_ATTRIBUTE_TYPE(attribute) SORN_ATTRIBUTE_MEMBER(attribute) = SORN_ATTRIBUTE_DEFAULT(attribute);

#define SORN_DECLARE_ACCESSORS(r, Type, attribute)                                                 \
    ::Sorn::ReadType<SORN_ATTRIBUTE_TYPE(attribute)> SORN_ATTRIBUTE_NAME(attribute)() const {      \
        return SORN_ATTRIBUTE_MEMBER(attribute);                                                   \
    }                                                                                              \
    Type& BOOST_PP_CAT(SORN_ATTRIBUTE_NAME(attribute), Is)(SORN_ATTRIBUTE_TYPE(attribute) value) { \
        SORN_ATTRIBUTE_MEMBER(attribute) = std::move(value);                                       \
        return *this;                                                                              \
    }

#define SORN_DESCRIBE(r, Type, i, attribute)                                                        \
    BOOST_PP_COMMA_IF(i)::Sorn::Attribute<Type, SORN_ATTRIBUTE_TYPE(attribute)> {                   \
        BOOST_PP_STRINGIZE(SORN_ATTRIBUTE_NAME(attribute)), &Type::SORN_ATTRIBUTE_MEMBER(attribute) \
    }

#define SORN_VALUE_TYPE_SEQ(Namespace, Type, attributeList)                                  \
private:                                                                                     \
    BOOST_PP_SEQ_FOR_EACH(SORN_DECLARE_MEMBER, Type, attributeList)                          \
public:                                                                                      \
    Type() = default;                                                                        \
    explicit Type(::Sorn::CharRange& text) {                                                 \
        ::Sorn::parseAttributes(text, *this);                                                \
    }                                                                                        \
    BOOST_PP_SEQ_FOR_EACH(SORN_DECLARE_ACCESSORS, Type, attributeList)                       \
    static constexpr char const* typeName() {                                                \
        return #Namespace "::" #Type;                                                        \
    }                                                                                        \
    static constexpr auto attributes() {                                                     \
        return std::make_tuple(BOOST_PP_SEQ_FOR_EACH_I(SORN_DESCRIBE, Type, attributeList)); \
    }                                                                                        \
    friend bool operator==(Type const&, Type const&) = default;                              \
    friend auto operator<=>(Type const&, Type const&) = default;                             \
    U32 hash(U32 seed) const {                                                               \
        return ::Sorn::hashAttributes(*this, seed);                                          \
    }                                                                                        \
    static_assert(true)

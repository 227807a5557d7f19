#pragma once

#include <compare>
#include <fmt/format.h>
#include <utility>
#include <variant>

#include "Belmo/Exceptions.h"
#include "Sorn/Text.h"

namespace NerioSwitchTable {

/**
 * One of two values: what is particular to a multicast entry, or to a unicast one. Reading the other one than
 * it holds throws `Belmo::RangeException`. The text form is "multicast:" or "unicast:" and the value's.
 */
template <class Multicast, class Unicast>
class SGData {
public:
    using MulticastType = Multicast;
    using UnicastType = Unicast;

    SGData() = default;
    SGData(Multicast value) : value_(std::move(value)) {}  // NOLINT: it is one of its values
    SGData(Unicast value) : value_(std::move(value)) {}    // NOLINT

    bool containsMulticast() const { return value_.index() == 0; }
    bool containsUnicast() const { return value_.index() == 1; }
    /** 0 for multicast, 1 for unicast. */
    U8 tag() const { return static_cast<U8>(value_.index()); }
    Multicast const& multicast() const { return read<Multicast>(); }
    Unicast const& unicast() const { return read<Unicast>(); }

    friend bool operator==(SGData const&, SGData const&) = default;
    // NOLINTNEXTLINE(modernize-use-nullptr)
    friend auto operator<=>(SGData const&, SGData const&) = default;
    U32 hash(U32 seed) const {
        return std::visit([&](auto const& value) { return value.hash(seed + tag()); }, value_);
    }
    Belmo::String text() const {
        return containsMulticast() ? "multicast:" + Sorn::text(multicast())
                                   : "unicast:" + Sorn::text(unicast());
    }
    static SGData fromText(Sorn::CharRange& range) {
        if (range.take("multicast:")) return Sorn::parse<Multicast>(range);
        if (range.take("unicast:")) return Sorn::parse<Unicast>(range);
        refuseName(range.takeUntil(":,() "));
    }
    [[noreturn]] static void refuseName(std::string_view name) {
        throw Belmo::RangeException(fmt::format("Invalid string rep for Data: unknown alternative {}", name));
    }

private:
    template <class Value>
    Value const& read() const {
        auto const* value = std::get_if<Value>(&value_);
        if (value == nullptr) {
            throw Belmo::RangeException(fmt::format("bad union: Data holds {} and is read as {}",
                                                    containsMulticast() ? "multicast" : "unicast",
                                                    containsMulticast() ? "unicast" : "multicast"));
        }
        return *value;
    }

    std::variant<Multicast, Unicast> value_;
};

}  // namespace NerioSwitchTable

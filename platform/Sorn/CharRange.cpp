#include "Sorn/CharRange.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>

#include "Belmo/Exceptions.h"
#include "Sorn/Format.h"

namespace Sorn {

namespace {

[[noreturn]] void refuse(char const* wanted, std::string_view found) {
    auto const shown = Belmo::String(found.substr(0, 40));
    throw Belmo::DeserializationException(_fmt("expected %s, found \"%s\"", wanted, shown.c_str()));
}

}  // namespace

bool CharRange::take(std::string_view text) {
    if (!rest_.starts_with(text)) return false;
    rest_.remove_prefix(text.size());
    return true;
}

void CharRange::expect(std::string_view text) {
    if (!take(text)) refuse(_fmt("\"%.*s\"", static_cast<int>(text.size()), text.data()).c_str(), rest_);
}

void CharRange::expectEnd() const {
    if (!rest_.empty()) refuse("the end", rest_);
}

std::string_view CharRange::takeUntil(std::string_view stops) {
    auto const length = std::min(rest_.find_first_of(stops), rest_.size());
    auto const taken = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return taken;
}

U64 CharRange::takeNumber() {
    auto digits = rest_;
    int base = 10;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
        base = 16;
    }
    U64 value = 0;
    auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (error != std::errc()) refuse("a number", rest_);
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return value;
}

template <std::floating_point Real>
Real CharRange::takeReal() {
    Real value = 0;
    auto const [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (error != std::errc() || std::isnan(value)) refuse("a number", rest_);
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return value;
}

template BELMO_EXPORT float CharRange::takeReal<float>();
template BELMO_EXPORT double CharRange::takeReal<double>();

}  // namespace Sorn

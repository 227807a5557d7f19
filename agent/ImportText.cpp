#include "agent/ImportText.h"

#include <algorithm>
#include <bit>
#include <charconv>

#include "Belmo/Exceptions.h"

namespace Agent {

namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/** Takes a run of digits, or of anything else, from the front. */
std::string_view takeRun(std::string_view& rest) {
    bool const digits = isDigit(rest.front());
    auto const* const end =
        std::ranges::find_if(rest, [&](char character) { return isDigit(character) != digits; });
    auto const run = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
    rest.remove_prefix(run.size());
    return run;
}

std::string_view withoutZeros(std::string_view digits) {
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
}

std::string_view withoutBlanks(std::string_view text) {
    auto const first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

std::optional<U8> lengthFromText(std::string_view text) {
    if (auto const length = numberFromText(text, 32)) return static_cast<U8>(*length);
    auto const mask = addressFromText(text);
    if (!mask) return std::nullopt;
    auto const length = static_cast<U8>(std::countl_one(mask->hostOrder()));
    return mask->hostOrder() == Lanvo::Prefix::mask(length) ? std::optional(length) : std::nullopt;
}

}  // namespace

std::optional<U32> numberFromText(std::string_view text, U32 most) {
    U32 value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > most) return std::nullopt;
    return value;
}

std::optional<Lanvo::IpAddr> addressFromText(std::string_view text) {
    try {
        Sorn::CharRange range(text);
        auto const address = Lanvo::IpAddr::fromText(range);
        return range.empty() ? std::optional(address) : std::nullopt;
    } catch (Belmo::Exception const&) {
        return std::nullopt;
    }
}

std::optional<Lanvo::Prefix> prefixFromText(std::string_view text) {
    auto const slash = text.find('/');
    auto const address = addressFromText(text.substr(0, slash));
    auto const length = slash == std::string_view::npos ? 32 : lengthFromText(text.substr(slash + 1));
    if (!address || !length) return std::nullopt;
    return Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(address->hostOrder() & Lanvo::Prefix::mask(*length)),
                         *length);
}

std::optional<PortRange> portRangeFromText(std::string_view text, char mark) {
    constexpr U32 lastPort = 0xFFFF;
    auto const between = text.find(mark);
    bool const one = between == std::string_view::npos;
    auto const low = text.substr(0, between);
    auto const high = one ? low : text.substr(between + 1);
    auto const first = low.empty() && !one ? 0 : numberFromText(low, lastPort);
    auto const last = high.empty() && !one ? lastPort : numberFromText(high, lastPort);
    if (!first || !last || *first > *last) return std::nullopt;
    return PortRange{static_cast<U16>(*first), static_cast<U16>(*last)};
}

std::vector<Belmo::String> splitText(std::string_view text, char mark) {
    std::vector<Belmo::String> parts;
    if (text.empty()) return parts;
    for (;;) {
        auto const end = std::min(text.find(mark), text.size());
        parts.emplace_back(withoutBlanks(text.substr(0, end)));
        if (end == text.size()) return parts;
        text.remove_prefix(end + 1);
    }
}

bool naturalLess(std::string_view a, std::string_view b) {
    auto restA = a;
    auto restB = b;
    while (!restA.empty() && !restB.empty()) {
        auto runA = takeRun(restA);
        auto runB = takeRun(restB);
        if (isDigit(runA.front()) && isDigit(runB.front())) {
            runA = withoutZeros(runA);
            runB = withoutZeros(runB);
            if (runA.size() != runB.size()) return runA.size() < runB.size();
        }
        if (runA != runB) return runA < runB;
    }
    if (restA.empty() != restB.empty()) return restA.empty();
    return a < b;
}

}  // namespace Agent

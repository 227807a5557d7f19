#include "agent/FilterSet.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <string_view>

#include "Belmo/Exceptions.h"

namespace Agent {

namespace {

/** Reads numbers and marks from a line, spaces between them passed over; false once something is wrong. */
class LineReader {
public:
    explicit LineReader(std::string_view line) : rest_(line) {}

    bool mark(char wanted) {
        skipSpace();
        if (rest_.empty() || rest_.front() != wanted) return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool number(U32& value, U32 most, int base = 10) {
        skipSpace();
        auto const [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value, base);
        if (error != std::errc() || value > most) return false;
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return true;
    }
    bool hexNumber(U32& value, U32 most) {
        return mark('0') && (mark('x') || mark('X')) && number(value, most, 16);
    }
    bool prefix(Lanvo::Prefix& prefix) {
        U32 address = 0;
        for (int i = 0; i < 4; ++i) {
            U32 byte = 0;
            if ((i != 0 && !mark('.')) || !number(byte, 255)) return false;
            address = address << 8 | byte;
        }
        U32 length = 0;
        if (!mark('/') || !number(length, 32)) return false;
        auto const bits = static_cast<U8>(length);
        prefix = {Lanvo::IpAddr::fromHostOrder(address & Lanvo::Prefix::mask(bits)), bits};
        return true;
    }
    bool ports(PortRange& range) {
        U32 first = 0;
        U32 last = 0;
        if (!number(first, 0xFFFF) || !mark(':') || !number(last, 0xFFFF) || first > last) return false;
        range = {static_cast<U16>(first), static_cast<U16>(last)};
        return true;
    }

private:
    void skipSpace() {
        auto const begin = rest_.find_first_not_of(" \t");
        rest_.remove_prefix(begin == std::string_view::npos ? rest_.size() : begin);
    }

    std::string_view rest_;
};

bool read(LineReader& line, FilterRule& rule) {
    U32 protocol = 0;
    U32 mask = 0;
    bool const isRule = line.mark('@') && line.prefix(rule.source) && line.prefix(rule.destination) &&
                        line.ports(rule.sourcePorts) && line.ports(rule.destinationPorts) &&
                        line.hexNumber(protocol, 0xFF) && line.mark('/') && line.hexNumber(mask, 0xFF);
    if (mask != 0) rule.protocol = static_cast<U8>(protocol);
    return isRule && (mask == 0 || mask == 0xFF);
}

/** Which fields a lookup takes in beside its addresses: the low two bits of a combination's number. */
enum class Fields : U8 { protocol = 0, destinationPort = 1, sourcePort = 2, none = 3 };

/** The combination of those fields in a physical table. */
U8 combinationOf(U8 physTableIdx, Fields fields) {
    constexpr std::array<std::array<U8, 4>, 3> combinations{{{0, 1, 2, 3}, {8, 9, 10, 7}, {12, 13, 14, 11}}};
    return combinations[physTableIdx][static_cast<U8>(fields)];
}

/** An address that takes part: one of no bits does not, and 0 is none to the chip. */
bool takesPart(Lanvo::Prefix const& prefix) {
    return prefix.address() != Lanvo::IpAddr();
}

}  // namespace

std::vector<FilterRule> filterRulesFromText(Belmo::String const& text) {
    std::vector<FilterRule> rules;
    std::string_view rest = text;
    for (U32 number = 1; !rest.empty(); ++number) {
        auto const end = std::min(rest.find('\n'), rest.size());
        auto const line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
        LineReader reader(line);
        FilterRule rule;
        if (!read(reader, rule)) {
            throw Belmo::RangeException(
                fmt::format("line {}: no filter rule \"@src/len dst/len sport : sport dport : dport "
                            "proto/mask\"",
                            number));
        }
        rules.push_back(rule);
    }
    return rules;
}

std::optional<NerioSwitch::HwProtocol> ProtocolNumbers::of(U8 protocol) {
    auto found = std::find(known_.begin(), known_.end(), protocol);
    if (found == known_.end()) {
        if (known_.size() == NerioSwitch::HwProtocol::max - 1) return std::nullopt;
        found = known_.insert(known_.end(), protocol);
    }
    return NerioSwitch::HwProtocol(U64(found - known_.begin()) + 1);
}

FilterKey filterKeyOf(FilterRule const& rule, U8 aclId, ProtocolNumbers& protocols) {
    FilterKey result;
    auto const& from = rule.sourcePorts;
    auto const& to = rule.destinationPorts;
    if ((!from.any() && !from.one()) || (!to.any() && !to.one())) {
        result.misfit = Misfit::portRange;
        return result;
    }
    if (from.one() && to.one()) {
        result.misfit = Misfit::twoPorts;
        return result;
    }
    bool const hasPort = from.one() || to.one();
    auto fields = Fields::none;
    if (rule.protocol) {
        auto const number = protocols.of(*rule.protocol);
        if (!number) {
            result.misfit = Misfit::protocol;
            return result;
        }
        result.key.protocolIs(*number);
        fields = to.one() ? Fields::destinationPort : from.one() ? Fields::sourcePort : Fields::protocol;
    } else if (hasPort) {
        result.misfit = Misfit::protocol;
        return result;
    }
    if (takesPart(rule.source)) result.key.firstPrefixIs(rule.source);
    if (takesPart(rule.destination)) result.key.secondPrefixIs(rule.destination);
    bool const both = takesPart(rule.source) && takesPart(rule.destination);
    result.physTableIdx = both ? 2 : takesPart(rule.source) ? 1 : 0;
    result.key.aclIdIs(aclId).combinationIs(combinationOf(result.physTableIdx, fields));
    if (hasPort) {
        U16 const port = to.one() ? to.first : from.first;
        result.key.portIs(port).portIsZeroIs(port == 0);
    }
    return result;
}

}  // namespace Agent

#include "agent/Ports.h"

#include <fmt/format.h>

#include "Belmo/Exceptions.h"

namespace Agent {

namespace {

U32 portFromText(Sorn::CharRange& range) {
    U64 const port = range.takeNumber();
    if (port >= NerioSwitch::ChipPortId::null)
        throw Belmo::RangeException("Agent::Ports::port > 52 not allowed");
    return static_cast<U32>(port);
}

}  // namespace

Belmo::String Ports::text() const {
    Belmo::String result;
    for (U64 rest = mask_; rest != 0;) {
        auto const first = std::countr_zero(rest);
        auto const count = std::countr_one(rest >> first);
        if (!result.empty()) result += ",";
        result += count == 1 ? fmt::format("{}", first) : fmt::format("{}-{}", first, first + count - 1);
        rest &= ~(((U64{1} << count) - 1) << first);
    }
    return result;
}

Ports Ports::fromText(Sorn::CharRange& range) {
    Ports ports;
    if (range.empty()) return ports;
    do {
        range.take(" ");
        U32 const first = portFromText(range);
        U32 const last = range.take("-") ? portFromText(range) : first;
        if (last < first)
            throw Belmo::RangeException(fmt::format("{}-{}: ports the wrong way round", first, last));
        for (U32 port = first; port <= last; ++port)
            ports.add(port);
    } while (range.take(","));
    return ports;
}

}  // namespace Agent

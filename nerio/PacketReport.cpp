#include "nerio/PacketReport.h"

#include <array>
#include <cctype>
#include <fmt/format.h>
#include <type_traits>
#include <vector>

#include "chip/Ipv4Packet.h"

namespace Nerio {

namespace {

using Agent::Json;
using Chip::ChipLookup;
using Chip::IpProtocol;
using Chip::NamedValue;
using Chip::NamedValues;
using Chip::PacketCopy;
using Chip::PacketFate;

std::string addressText(U32 address) {
    return Lanvo::IpAddr::fromHostOrder(address).text();
}

std::string protocolText(U8 protocol) {
    switch (protocol) {
        case IpProtocol::icmp:
            return "ICMP";
        case IpProtocol::tcp:
            return "TCP";
        case IpProtocol::udp:
            return "UDP";
        default:
            return fmt::format("protocol {}", protocol);
    }
}

std::string endsText(Chip::Ipv4Headers const& headers) {
    auto const source = addressText(headers.source);
    auto const destination = addressText(headers.destination);
    auto const protocol = protocolText(headers.protocol);
    if (!headers.transport) return fmt::format("{} {} to {}", protocol, source, destination);
    return fmt::format("{} {}:{} to {}:{}", protocol, source, headers.transport->sourcePort, destination,
                       headers.transport->destinationPort);
}

std::string packetText(std::vector<U8> const& bytes) {
    auto const headers = Chip::headersOf(bytes);
    auto text = fmt::format("{}, header checksum 0x{:04x}", endsText(headers), headers.checksum);
    if (headers.transport) {
        text += fmt::format(", {} checksum 0x{:04x}", protocolText(headers.protocol),
                            headers.transport->checksum);
    }
    return text;
}

/** "VLAN 5", "trap to CPU" for a flag that is set, and nothing for one that is not. */
std::string valueText(NamedValue const& value) {
    return std::visit(
        [&](auto const& held) {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, bool>) {
                return held ? value.name : std::string();
            } else if constexpr (std::is_same_v<Held, std::vector<U64>>) {
                return held.empty() ? "no " + value.name
                                    : fmt::format("{} {}", value.name, fmt::join(held, " "));
            } else {
                return fmt::format("{} {}", value.name, held);
            }
        },
        value.value);
}

std::string valuesText(NamedValues const& values) {
    std::vector<std::string> texts;
    for (auto const& value : values) {
        if (auto text = valueText(value); !text.empty()) texts.push_back(std::move(text));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::string lookupText(ChipLookup const& lookup) {
    auto const way = lookup.way ? fmt::format(", way {}", *lookup.way) : "";
    auto const row = lookup.row ? fmt::format(", row {}", *lookup.row) : "";
    return fmt::format("    {}{}{}: {} -> {}\n", lookup.memory, way, row, valuesText(lookup.key),
                       lookup.result ? valuesText(*lookup.result) : "no row");
}

std::string copyText(PacketReport const& report, PacketCopy const& copy, bool mirrored) {
    bool const cpu = copy.port == report.profile.numPorts;
    auto const vlan = copy.vlan ? fmt::format(" in VLAN {}", *copy.vlan) : "";
    auto const* verb = mirrored ? "is mirrored to" : cpu ? "goes to" : "leaves by";
    auto const station = copy.ethAddr ? fmt::format(" for {}", copy.ethAddr->text()) : "";
    return fmt::format("    {}{}{}: {}\n",
                       fmt::format("{} {}", verb, cpu ? "the CPU" : fmt::format("port {}", copy.port)), vlan,
                       station, packetText(copy.bytes));
}

std::string fateText(Chip::PacketWay const& way) {
    switch (way.fate) {
        case PacketFate::forwarded:
            return "forwarded";
        case PacketFate::toCpu:
            return "to the CPU";
        case PacketFate::dropped:
            break;
    }
    return fmt::format("dropped in stage {}", way.stages.back().name);
}

/** "L3 LAG" becomes "l3Lag". */
std::string memberName(std::string const& words) {
    std::string name;
    bool begins = false;
    for (char const letter : words) {
        if (letter == ' ') {
            begins = true;
            continue;
        }
        int const code = static_cast<unsigned char>(letter);
        name += static_cast<char>(std::exchange(begins, false) ? std::toupper(code) : std::tolower(code));
    }
    return name;
}

Json valuesToJson(NamedValues const& values) {
    auto json = Json::object();
    for (auto const& value : values)
        json[memberName(value.name)] = std::visit([](auto const& held) { return Json(held); }, value.value);
    return json;
}

template <class Value>
Json orNull(std::optional<Value> const& value) {
    return value ? Json(*value) : Json();
}

Json lookupToJson(ChipLookup const& lookup) {
    return {{"memory", lookup.memory},
            {"way", orNull(lookup.way)},
            {"row", orNull(lookup.row)},
            {"key", valuesToJson(lookup.key)},
            {"result", lookup.result ? valuesToJson(*lookup.result) : Json()}};
}

Json headersToJson(std::vector<U8> const& bytes) {
    auto const headers = Chip::headersOf(bytes);
    Json json{{"src", addressText(headers.source)},
              {"dst", addressText(headers.destination)},
              {"proto", headers.protocol},
              {"checksum", headers.checksum}};
    if (headers.transport) {
        json.update(Json{{"sport", headers.transport->sourcePort},
                         {"dport", headers.transport->destinationPort},
                         {"transportChecksum", headers.transport->checksum}});
    }
    return json;
}

Json copyToJson(PacketReport const& report, PacketCopy const& copy) {
    bool const cpu = copy.port == report.profile.numPorts;
    return {{"port", cpu ? Json() : Json(copy.port)},
            {"cpu", cpu},
            {"vlan", orNull(copy.vlan)},
            {"ethAddr", copy.ethAddr ? Json(copy.ethAddr->text()) : Json()},
            {"packet", headersToJson(copy.bytes)}};
}

}  // namespace

std::string toText(PacketReport const& report) {
    auto const& [profile, packet, way, where] = report;
    auto text = fmt::format("{}, by port {} in VLAN {} and VRF {}, through the switch {}\n\n",
                            endsText(Chip::headersOf(packet.bytes)), packet.port, way.vlan, way.vrf, where);
    for (auto const& stage : way.stages) {
        text += fmt::format("{:<16} {}\n", stage.name, stage.decision);
        for (auto const& lookup : stage.lookups)
            text += lookupText(lookup);
    }
    text +=
        fmt::format("\n{}\n    came by port {}: {}\n", fateText(way), packet.port, packetText(packet.bytes));
    for (auto const& copy : way.copies)
        text += copyText(report, copy, false);
    for (auto const& copy : way.mirrored)
        text += copyText(report, copy, true);
    return text;
}

Json toJson(PacketReport const& report) {
    auto const& [profile, packet, way, where] = report;
    auto came = headersToJson(packet.bytes);
    came.update(Json{{"port", packet.port}, {"vlan", way.vlan}, {"vrf", way.vrf}});
    auto stages = Json::array();
    for (auto const& stage : way.stages) {
        auto lookups = Json::array();
        for (auto const& lookup : stage.lookups)
            lookups.push_back(lookupToJson(lookup));
        stages.push_back({{"stage", stage.name}, {"decision", stage.decision}, {"lookups", lookups}});
    }
    auto const copiesToJson = [&](std::vector<PacketCopy> const& copies) {
        auto json = Json::array();
        for (auto const& copy : copies)
            json.push_back(copyToJson(report, copy));
        return json;
    };
    constexpr std::array fates{"forwarded", "toCpu", "dropped"};
    return {{"packet", came},
            {"stages", stages},
            {"fate", fates[static_cast<std::size_t>(way.fate)]},
            {"copies", copiesToJson(way.copies)},
            {"mirrored", copiesToJson(way.mirrored)}};
}

}  // namespace Nerio

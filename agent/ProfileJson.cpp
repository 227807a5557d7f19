#include "agent/ProfileJson.h"

#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <vector>

#include "agent/ValueJson.h"

namespace Agent {

using NerioSwitch::PipeRangeInfo;
using NerioSwitch::ProfileInfo;
using NerioSwitch::TableLayout;
using NerioSwitch::TableLayoutEnum;

namespace {

/** One attribute of the profile, by its name in JSON. */
struct ProfileAttribute {
    char const* name;
    std::function<void(ProfileInfo&, Json const&, Place const&)> read;
    std::function<Json(ProfileInfo const&)> write;
};

template <class Value>
ProfileAttribute attribute(char const* name, Value ProfileInfo::*member) {
    return {name,
            [member](ProfileInfo& profile, Json const& json, Place const& place) {
                profile.*member = fromJson<Value>(json, place);
            },
            [member](ProfileInfo const& profile) { return toJson(profile.*member); }};
}

/** Reads the member of an object if it is there. */
template <class Value>
void readMember(Json const& object, char const* name, Value& value, Place const& place) {
    if (auto const* member = optionalMember(object, name))
        value = fromJson<Value>(*member, place.member(name));
}

/** Ports of a chip, between what a table needs at least and what a chip's map of registers is made for. */
void readNumPorts(ProfileInfo& profile, Json const& json, Place const& place) {
    constexpr U16 most = 1024;
    auto const number = fromJson<U16>(json, place);
    if (number == 0) throw JsonException(place, Belmo::RangeException("numPorts 0 < 1 not allowed"));
    if (number > most) {
        throw JsonException(place,
                            Belmo::RangeException(fmt::format("numPorts {} > {} not allowed", number, most)));
    }
    profile.numPorts = number;
}

PipeRangeInfo pipeFromJson(Json const& json, Place const& place) {
    membersAre(json, {"pipeId", "firstPort", "lastPort"}, place);
    PipeRangeInfo pipe;
    readMember(json, "pipeId", pipe.pipeId, place);
    readMember(json, "firstPort", pipe.firstPort, place);
    readMember(json, "lastPort", pipe.lastPort, place);
    if (pipe.firstPort > pipe.lastPort) {
        throw JsonException(place.member("lastPort"), "lastPort: below firstPort");
    }
    return pipe;
}

std::vector<PipeRangeInfo> pipesFromJson(Json const& json, Place const& place) {
    if (!json.is_array()) refuseKind(json, "an array", place);
    std::vector<PipeRangeInfo> pipes;
    for (auto const& element : json) {
        auto const at = place.element(pipes.size());
        auto const pipe = pipeFromJson(element, at);
        bool const isTaken = std::any_of(pipes.begin(), pipes.end(),
                                         [&](auto const& other) { return other.pipeId == pipe.pipeId; });
        if (isTaken) throw JsonException(at.member("pipeId"), "pipeId: another pipe has this number");
        pipes.push_back(pipe);
    }
    return pipes;
}

Json pipesToJson(NerioSwitch::PipeRangeInfoMap const& pipes) {
    Json array = Json::array();
    for (auto const& [id, pipe] : pipes) {
        array.push_back(
            {{"pipeId", pipe.pipeId}, {"firstPort", pipe.firstPort}, {"lastPort", pipe.lastPort}});
    }
    return array;
}

constexpr std::pair<char const*, TableLayoutEnum> layoutNames[] = {
    {"acl", TableLayoutEnum::tableLayoutAcl},       {"l2", TableLayoutEnum::tableLayoutL2},
    {"egress", TableLayoutEnum::tableLayoutEgress}, {"l3", TableLayoutEnum::tableLayoutL3},
    {"vlan", TableLayoutEnum::tableLayoutVlan},
};

void readLayout(TableLayout& layout, Json const& json, Place const& place) {
    membersAre(json, {"tables", "pipelines", "processors", "size", "pipeToTable", "pipeToProcessor"}, place);
    readMember(json, "tables", layout.tables, place);
    readMember(json, "pipelines", layout.pipelines, place);
    readMember(json, "processors", layout.processors, place);
    readMember(json, "size", layout.size, place);
    readMember(json, "pipeToTable", layout.pipeToTable, place);
    readMember(json, "pipeToProcessor", layout.pipeToProcessor, place);
}

/** A layout that is named is changed attribute by attribute; null says that the chip has none. */
void readLayouts(ProfileInfo& profile, Json const& json, Place const& place) {
    membersAre(json, {"acl", "l2", "egress", "l3", "vlan"}, place);
    for (auto const& [name, id] : layoutNames) {
        auto const* member = optionalMember(json, name);
        if (member == nullptr) continue;
        if (member->is_null()) {
            profile.layouts.erase(id);
        } else {
            readLayout(profile.layouts[id], *member, place.member(name));
        }
    }
}

Json layoutsToJson(ProfileInfo const& profile) {
    Json object = Json::object();
    for (auto const& [name, id] : layoutNames) {
        auto const* layout = profile.getHardwareTableLayout(id);
        object[name] =
            layout == nullptr
                ? Json()
                : Json{{"tables", layout->tables},           {"pipelines", layout->pipelines},
                       {"processors", layout->processors},   {"size", layout->size},
                       {"pipeToTable", layout->pipeToTable}, {"pipeToProcessor", layout->pipeToProcessor}};
    }
    return object;
}

std::vector<ProfileAttribute> const& profileAttributes() {
    static std::vector<ProfileAttribute> const attributes = {
        attribute("name", &ProfileInfo::name),
        {"numPorts", readNumPorts, [](ProfileInfo const& profile) { return toJson(profile.numPorts); }},
        attribute("hwApi", &ProfileInfo::hwApi),
        attribute("vlanRegVer", &ProfileInfo::vlanRegVer),
        attribute("aclRegVer", &ProfileInfo::aclRegVer),
        attribute("numVrfs", &ProfileInfo::numVrfs),
        attribute("numPipelines", &ProfileInfo::numPipelines),
        attribute("hasCpuPipeline", &ProfileInfo::hasCpuPipeline),
        attribute("cpuPortId", &ProfileInfo::cpuPort),
        attribute("noMuxInRegName", &ProfileInfo::noMuxInRegName),
        attribute("floodSetParity", &ProfileInfo::floodSetParity),
        attribute("natProfile", &ProfileInfo::natProfile),
        attribute("aclPipeModeCapable", &ProfileInfo::aclPipeModeCapable),
        {"ingressPipes",
         [](ProfileInfo& profile, Json const& json, Place const& place) {
             profile.ingressPipesAre(pipesFromJson(json, place));
         },
         [](ProfileInfo const& profile) { return pipesToJson(profile.ingressPipeRangeInfo); }},
        {"egressPipes",
         [](ProfileInfo& profile, Json const& json, Place const& place) {
             profile.egressPipesAre(pipesFromJson(json, place));
         },
         [](ProfileInfo const& profile) { return pipesToJson(profile.egressPipeRangeInfo); }},
        {"layouts", readLayouts, layoutsToJson},
        attribute("macVlanRows", &ProfileInfo::macVlanRows),
        attribute("supportedEntries", &ProfileInfo::supportedEntries),
    };
    return attributes;
}

}  // namespace

Belmo::Ptr<ProfileInfo> profileFromJson(Json const& json, Place const& place,
                                        std::initializer_list<std::string_view> extra) {
    if (!json.is_object()) refuseKind(json, "an object", place);
    Belmo::String preset = "default";
    readMember(json, "preset", preset, place);
    auto profile = NerioSwitch::profilePreset(preset);
    if (!profile) {
        throw JsonException(place.member("preset"), fmt::format("unknown profile preset {}", shown(preset)));
    }
    auto const& attributes = profileAttributes();
    for (auto const& [name, value] : json.items()) {
        if (name == "preset" || std::find(extra.begin(), extra.end(), name) != extra.end()) continue;
        auto const known =
            std::find_if(attributes.begin(), attributes.end(),
                         [&name = name](auto const& candidate) { return name == candidate.name; });
        if (known == attributes.end()) {
            throw JsonException(place.member(name),
                                fmt::format("unknown attribute {} of the profile", shown(name)));
        }
        known->read(*profile, value, place.member(name));
    }
    return profile;
}

Json profileToJson(ProfileInfo const& profile) {
    Json object = Json::object();
    for (auto const& attribute : profileAttributes())
        object[attribute.name] = attribute.write(profile);
    return object;
}

}  // namespace Agent

#include "agent/ProfileJson.h"

#include <algorithm>
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

std::vector<PipeRangeInfo> pipesFromJson(Json const& json, Place const& place) {
    std::vector<PipeRangeInfo> pipes;
    for (auto const& pipe : fromJson<std::vector<std::map<Belmo::String, U16>>>(json, place)) {
        auto const at = place.element(pipes.size());
        membersAre(json[pipes.size()], {"pipeId", "firstPort", "lastPort"}, at);
        PipeRangeInfo range;
        for (auto const& [name, number] : pipe) {
            (name == "pipeId"      ? range.pipeId
             : name == "firstPort" ? range.firstPort
                                   : range.lastPort) = number;
        }
        if (range.firstPort > range.lastPort) {
            throw JsonException(at.member("lastPort"), "lastPort is below firstPort");
        }
        pipes.push_back(range);
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
    auto const read = [&](char const* name, auto& value) {
        if (auto const* member = optionalMember(json, name)) {
            value = fromJson<std::remove_reference_t<decltype(value)>>(*member, place.member(name));
        }
    };
    read("tables", layout.tables);
    read("pipelines", layout.pipelines);
    read("processors", layout.processors);
    read("size", layout.size);
    read("pipeToTable", layout.pipeToTable);
    read("pipeToProcessor", layout.pipeToProcessor);
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
        attribute("numPorts", &ProfileInfo::numPorts),
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
    auto const* preset = json.is_object() ? optionalMember(json, "preset") : nullptr;
    auto const presetName = preset == nullptr ? Belmo::String("default")
                                              : fromJson<Belmo::String>(*preset, place.member("preset"));
    auto profile = NerioSwitch::profilePreset(presetName);
    if (!profile) {
        throw JsonException(place.member("preset"), fmt::format("unknown profile preset \"{}\"", presetName));
    }
    if (!json.is_object()) throw JsonException(place, "the profile is no object");
    auto const& attributes = profileAttributes();
    for (auto const& [name, value] : json.items()) {
        if (name == "preset" || std::find(extra.begin(), extra.end(), name) != extra.end()) continue;
        auto const known = std::find_if(attributes.begin(), attributes.end(),
                                        [&](auto const& candidate) { return name == candidate.name; });
        if (known == attributes.end()) {
            throw JsonException(place.member(name),
                                fmt::format("unknown attribute \"{}\" of the profile", name));
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

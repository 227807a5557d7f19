#pragma once

#include "NerioSwitchTable/SGData.h"
#include "agent/ValueAttributes.h"

namespace Agent {

/** {"multicast":{...}} or {"unicast":{...}} */
template <class Multicast, class Unicast>
struct JsonForm<NerioSwitchTable::SGData<Multicast, Unicast>> {
    using Data = NerioSwitchTable::SGData<Multicast, Unicast>;

    static Json toJson(Data const& data) {
        if (data.containsMulticast()) return {{"multicast", Agent::toJson(data.multicast())}};
        return {{"unicast", Agent::toJson(data.unicast())}};
    }
    static void addAttributes(Belmo::String const& name, Data const& /*initial*/, ValueAttributes& all) {
        Agent::addAttributes(name + ".multicast", Multicast{}, all);
        Agent::addAttributes(name + ".unicast", Unicast{}, all);
    }
    static Data fromJson(Json const& json, Place const& place) {
        if (!json.is_object() || json.size() != 1) refuseKind(json, "an object with one alternative", place);
        auto const member = json.begin();
        auto const& name = member.key();
        auto const& value = member.value();
        if (name == "multicast") return Agent::fromJson<Multicast>(value, place.member(name));
        if (name == "unicast") return Agent::fromJson<Unicast>(value, place.member(name));
        return Detail::placed(place, [&]() -> Data { Data::refuseName(name); });
    }
};

}  // namespace Agent

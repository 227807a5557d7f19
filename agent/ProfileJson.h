#pragma once

#include "Belmo/Ptr.h"
#include "NerioSwitch/ProfileInfo.h"

#include "agent/Json.h"

namespace Agent {

/**
 * The profile that a JSON object describes: a preset ("preset", "default" if left out) and any attribute that
 * differs from it. `extra` names members of the object that are not the profile's. Throws `JsonException`.
 */
Belmo::Ptr<NerioSwitch::ProfileInfo> profileFromJson(Json const& json, Place const& place,
                                                     std::initializer_list<std::string_view> extra = {});

/** Every attribute of a profile, in the form that `profileFromJson` reads. */
Json profileToJson(NerioSwitch::ProfileInfo const& profile);

}  // namespace Agent

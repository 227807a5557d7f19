#pragma once

#include <functional>
#include <string_view>

#include "agent/Json.h"

namespace Agent {

/**
 * Reads the text of a JSON object member by member, in its order, and keeps none of them: for texts too long
 * to be held as a whole. Throws `JsonException` as `parseJson` does; members before the fault were told.
 */
void forEachMember(std::string_view text,
                   std::function<void(Belmo::String const& name, Json const& value)> const& take);

}  // namespace Agent

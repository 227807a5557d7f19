#pragma once

#include <tuple>

#include "agent/ValueJson.h"

namespace Agent {

/** A value as an object without the attributes that are at their default. */
template <class Value>
Json sparseToJson(Value const& value) {
    Json json = Json::object();
    Value const defaults;
    std::apply(
        [&](auto const&... attribute) {
            ((value.*(attribute.member) == defaults.*(attribute.member)
                  ? void()
                  : void(json[attribute.name] = toJson(value.*(attribute.member)))),
             ...);
        },
        Value::attributes());
    return json;
}

}  // namespace Agent

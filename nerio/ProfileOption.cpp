#include "nerio/ProfileOption.h"

#include <fmt/format.h>

#include "agent/ProfileJson.h"
#include "agent/TextFile.h"
#include "nerio/Guarded.h"

namespace Nerio {

Belmo::Ptr<NerioSwitch::ProfileInfo> profileOption(std::string const& text) {
    if (auto preset = NerioSwitch::profilePreset(text)) return preset;
    try {
        Agent::Place const whole;
        auto const json = Agent::parseJson(Agent::textOfFile(text));
        auto const* within = json.is_object() ? Agent::optionalMember(json, "profile") : nullptr;
        return within == nullptr ? Agent::profileFromJson(json, whole, {"op"})
                                 : Agent::profileFromJson(*within, whole.member("profile"));
    } catch (Agent::JsonException const& failure) {
        auto const& place = failure.place();
        throw BadInput(fmt::format("{}: {}{}{}", text, place, place.empty() ? "" : ": ", failure.what()));
    } catch (Belmo::ResourceException const& failure) {
        throw BadInput(fmt::format("{}: neither a preset nor a file: {}", text, failure.what()));
    }
}

}  // namespace Nerio

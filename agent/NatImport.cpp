#include "agent/NatImport.h"

#include <fmt/format.h>

namespace Agent {

namespace {

NatTranslation withoutProto(NatTranslation translation) {
    return translation.protoIs(NerioSwitch::NatL4Proto::none);
}

}  // namespace

void NatImport::translationIs(NatTranslation const& translation, Belmo::String const& place) {
    if (!profile_.natProfile) {
        report_.lost(place, "the chip does not translate");
        return;
    }
    Side const inside{translation.inside(), translation.insidePort(), translation.filterPfx()};
    Side const outside{translation.outside(), translation.outsidePort(), translation.filterPfx()};
    auto const sameInside = insides_.find(inside);
    auto const sameOutside = outsides_.find(outside);
    if (sameInside == insides_.end() && sameOutside == outsides_.end()) {
        Told const told{translations_.size(), place};
        insides_.emplace(inside, told);
        outsides_.emplace(outside, told);
        translations_.push_back(translation);
        report_.took("translations");
        return;
    }
    auto const& told = sameInside != insides_.end() ? sameInside->second : sameOutside->second;
    auto& earlier = translations_[told.number];
    if (withoutProto(earlier) != withoutProto(translation)) {
        report_.lost(place, fmt::format("{} matches the same packets", told.place));
    } else if (earlier.proto() == 0 || translation.proto() == 0) {
        earlier.protoIs(NerioSwitch::NatL4Proto::none);
    } else {
        earlier.protoIs(earlier.proto().value() | translation.proto().value());
    }
}

}  // namespace Agent

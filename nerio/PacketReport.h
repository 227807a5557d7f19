#pragma once

#include <string>

#include "NerioSwitch/ProfileInfo.h"

#include "agent/Json.h"
#include "chip/PacketWay.h"

/* A packet's way through the chip, for people and for programs. */
namespace Nerio {

/** What is told: a packet, its way, and the chip that it came through. */
struct PacketReport {
    NerioSwitch::ProfileInfo const& profile;
    Chip::ArrivingPacket const& packet;
    Chip::PacketWay const& way;
    /** Whose chip it is, as in "of examples/campus.json". */
    std::string where;
};

/** A line for each stage, and below it one for each lookup; then the packet as it came and as it leaves. */
std::string toText(PacketReport const& report);
/** `packet`, `stages`, `fate`, `copies` and `mirrored`. Members of keys and results are called as in the
 * text, in camel case. */
Agent::Json toJson(PacketReport const& report);

}  // namespace Nerio

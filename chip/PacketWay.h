#pragma once

#include <optional>
#include <variant>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "Lanvo/Address.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/LpmLookup.h"
#include "chip/SimulatedChip.h"

/* The way of a packet through the chip, stage by stage, in nothing but what registers wrote. */
namespace Chip {

/** A packet that comes to the chip, and what is known of it beside its bytes. */
struct ArrivingPacket {
    U32 port = 0;
    /** 0 to 4095. A packet without one is untagged. */
    std::optional<U16> vlan{};
    /** Without one, its VLAN's. */
    std::optional<U8> vrf{};
    /** Where its frame is addressed to. Without one it is for the router. */
    std::optional<Lanvo::EthAddr> ethAddr{};
    /** The ACL that it is held against, 0 to 15; without one, its VLAN's. If that has none, the rules of VRFs
     * alone are asked. */
    std::optional<U8> aclId{};
    /** Its protocol as ACL keys have it, 1 to 15; 0 matches no rule that looks at it. Without one, what the
     * chip has for its IP protocol. */
    std::optional<U8> aclProtocol{};
    bool aclKeyFlag = false;
    /** Of the interface that it comes by, 0 to 63; without one, its VLAN's. */
    std::optional<U8> natProfile{};
    /** And of the one that it leaves by; without one, the same. */
    std::optional<U8> egressNatProfile{};
    /** The next hop, 0 to 159, that multicast packets without a route are flooded to. */
    U32 floodNexthop = 0;
    /** Where unicast packets leave, whatever ports the L3 LAG has. */
    std::optional<U32> egressPort{};
    /** IPv4, from its header on. */
    std::vector<U8> bytes;
};

/** Something that a lookup takes or gives, by its name in words. */
struct NamedValue {
    using Value = std::variant<bool, U64, Belmo::String, std::vector<U64>>;

    Belmo::String name;
    Value value;

    friend bool operator==(NamedValue const&, NamedValue const&) = default;
};
using NamedValues = std::vector<NamedValue>;

/** A look into a memory or a register. */
struct ChipLookup {
    /** The memory, as the chip names it, or the register's path. */
    Belmo::String memory;
    /** The row that answered, and its way where the memory has several; neither where none did, and for a
     * register. */
    std::optional<U32> way{};
    std::optional<U32> row{};
    NamedValues key;
    /** What the row says; nothing if no row answered. */
    std::optional<NamedValues> result{};

    friend bool operator==(ChipLookup const&, ChipLookup const&) = default;
};

/** What a stage looked up for a packet, and what it decided. */
struct PacketStage {
    Belmo::String name;
    Belmo::String decision;
    std::vector<ChipLookup> lookups;

    friend bool operator==(PacketStage const&, PacketStage const&) = default;
};

/** A copy of the packet as it leaves. */
struct PacketCopy {
    /** The CPU's number is that behind the last port's. */
    U32 port = 0;
    /** Where multicast and flooding tell one. */
    std::optional<U16> vlan{};
    /** Which VLAN of its group it is; multicast alone. */
    U8 member = 0;
    /** The destination that flooding writes into it. */
    std::optional<Lanvo::EthAddr> ethAddr{};
    std::vector<U8> bytes;
};

enum class PacketFate : U8 { forwarded, toCpu, dropped };

struct PacketWay {
    /** The stages that the packet came through. The last one tells why it was dropped or goes to the CPU. */
    std::vector<PacketStage> stages;
    PacketFate fate = PacketFate::dropped;
    /** In which VLAN and VRF it came. */
    U16 vlan = 1;
    U8 vrf = 0;
    /** None for a packet that is dropped. */
    std::vector<PacketCopy> copies;
    /** Copies of the packet as it came, whatever becomes of it. */
    std::vector<PacketCopy> mirrored;
    /** The route of a unicast packet, if one was asked for and found. */
    std::optional<LpmHit> route{};
};

/**
 * The way of a packet. Asking leaves no trace in the chip, not even a hit bit. Throws `Belmo::RangeException`
 * for what is no IPv4 packet, and for numbers that the chip of the profile does not have.
 */
BELMO_EXPORT PacketWay packetWay(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile,
                                 ArrivingPacket const& packet);

}  // namespace Chip

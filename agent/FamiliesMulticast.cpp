#include "NerioSwitchTable/NerioTableL3FloodArp.h"
#include "NerioSwitchTable/NerioTableL3FloodBitmap.h"
#include "NerioSwitchTable/NerioTableSG.h"
#include "NerioSwitchTable/NerioTableStarG.h"
#include "NerioSwitchTable/NerioTableVlanGroup.h"
#include "agent/FamilyOf.h"
#include "agent/HashJsonTable.h"
#include "agent/SGJson.h"

namespace Agent {

std::vector<Family> multicastFamilies() {
    return {
        familyOf<HashJsonTable>("sG",
                                "Routes by source and destination address: multicast routes of one source, "
                                "and flows of translation.",
                                NerioSwitchTable::sGTableFactory),
        familyOf<HashJsonTable>(
            "starG",
            "Multicast routes of any source; they live in the rows of stage 29 of the route look-up.",
            NerioSwitchTable::starGTableFactory),
        familyOf<DirectJsonTable>("l3FloodArp",
                                  "Per next hop of flooded packets, their destination address and VLAN.",
                                  NerioSwitchTable::l3FloodArpTableFactory),
        familyOf<DirectJsonTable>("l3FloodBitmap",
                                  "Per next hop of flooded packets, the ports that they go out of.",
                                  NerioSwitchTable::l3FloodBitmapTableFactory, "numFloodsForEcmp"),
        familyOf<DirectJsonTable>(
            "vlanGroup",
            "Per egress port and group, the VLANs that a packet for the group leaves the port in.",
            NerioSwitchTable::vlanGroupTableFactory),
    };
}

}  // namespace Agent

#include "NerioSwitchTable/NerioTableCopp.h"
#include "NerioSwitchTable/NerioTableStormControl.h"
#include "agent/FamilyOf.h"

namespace Agent {

std::vector<Family> rateFamilies() {
    return {
        familyOf<PlainJsonTable>("copp",
                                 "Limits of the traffic to the CPU: an interval that all limits share, and a "
                                 "limit for each class of traffic.",
                                 NerioSwitchTable::coppTableFactory),
        familyOf<PlainJsonTable>("stormControl",
                                 "Per chip port, limits of broadcast, unicast and multicast traffic.",
                                 NerioSwitchTable::stormControlTableFactory),
    };
}

}  // namespace Agent

#include "NerioSwitchTable/NerioTableLagGroup.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"
#include "agent/FamilyOf.h"

namespace Agent {

std::vector<Family> lagFamilies() {
    return {
        familyOf<PlainJsonTable>("lagGroup", "Per chip port, the link aggregation group that it belongs to.",
                                 NerioSwitchTable::lagGroupTableFactory),
        familyOf<PlainJsonTable>(
            "lagMembership", "Per chip port, the ports that form its LAG together, and the group's number.",
            NerioSwitchTable::lagMembershipTableFactory),
        familyOf<PlainJsonTable>("lagLookUp", "Per chip port, its buckets of the LAG hash.",
                                 NerioSwitchTable::lagLookUpTableFactory),
        familyOf<PlainJsonTable>("lagHashControl",
                                 "Per chip port, what goes into the hash that picks a member of a LAG.",
                                 NerioSwitchTable::lagHashControlTableFactory),
    };
}

}  // namespace Agent

#include "NerioSwitchTable/NerioTableLagGroup.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"
#include "agent/FamilyOf.h"

namespace Agent {

std::vector<Family> lagFamilies() {
    return {
        familyOf<PlainJsonTable>("lagGroup", NerioSwitchTable::lagGroupTableFactory),
        familyOf<PlainJsonTable>("lagMembership", NerioSwitchTable::lagMembershipTableFactory),
        familyOf<PlainJsonTable>("lagLookUp", NerioSwitchTable::lagLookUpTableFactory),
        familyOf<PlainJsonTable>("lagHashControl", NerioSwitchTable::lagHashControlTableFactory),
    };
}

}  // namespace Agent

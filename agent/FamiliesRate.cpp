#include "NerioSwitchTable/NerioTableCopp.h"
#include "NerioSwitchTable/NerioTableStormControl.h"
#include "agent/FamilyOf.h"

namespace Agent {

std::vector<Family> rateFamilies() {
    return {
        familyOf<PlainJsonTable>("copp", NerioSwitchTable::coppTableFactory),
        familyOf<PlainJsonTable>("stormControl", NerioSwitchTable::stormControlTableFactory),
    };
}

}  // namespace Agent

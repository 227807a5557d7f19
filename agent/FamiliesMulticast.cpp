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
        familyOf<HashJsonTable>("sG", NerioSwitchTable::sGTableFactory),
        familyOf<HashJsonTable>("starG", NerioSwitchTable::starGTableFactory),
        familyOf<DirectJsonTable>("l3FloodArp", NerioSwitchTable::l3FloodArpTableFactory),
        familyOf<DirectJsonTable>("l3FloodBitmap", NerioSwitchTable::l3FloodBitmapTableFactory,
                                  "numFloodsForEcmp"),
        familyOf<DirectJsonTable>("vlanGroup", NerioSwitchTable::vlanGroupTableFactory),
    };
}

}  // namespace Agent

#include "NerioSwitchTable/NerioTableNatDynMatch.h"
#include "NerioSwitchTable/NerioTableNatMatch.h"
#include "NerioSwitchTable/NerioTableNatRewrite.h"
#include "agent/FamilyOf.h"
#include "agent/HashJsonTable.h"

namespace Agent {

std::vector<Family> natFamilies() {
    return {
        familyOf<HashJsonTable>("natMatch", NerioSwitchTable::natMatchTableFactory, "pipeline"),
        familyOf<HashJsonTable>("natDynMatch", NerioSwitchTable::natDynMatchTableFactory, "pipeline"),
        familyOf<HashJsonTable>("natRewrite", NerioSwitchTable::natRewriteTableFactory, "pipeline"),
    };
}

}  // namespace Agent

#include "NerioSwitchTable/NerioTableNatDynMatch.h"
#include "NerioSwitchTable/NerioTableNatMatch.h"
#include "NerioSwitchTable/NerioTableNatRewrite.h"
#include "agent/FamilyOf.h"
#include "agent/HashJsonTable.h"

namespace Agent {

std::vector<Family> natFamilies() {
    return {
        familyOf<HashJsonTable>("natMatch",
                                "Static address translation: what packets are matched by, and the session "
                                "and rewrite that they get.",
                                NerioSwitchTable::natMatchTableFactory, "pipeline"),
        familyOf<HashJsonTable>("natDynMatch",
                                "Address translation of single flows, matched by both addresses and ports.",
                                NerioSwitchTable::natDynMatchTableFactory, "pipeline"),
        familyOf<HashJsonTable>(
            "natRewrite", "What a translated packet is rewritten to, by session and where the packet leaves.",
            NerioSwitchTable::natRewriteTableFactory, "pipeline"),
    };
}

}  // namespace Agent

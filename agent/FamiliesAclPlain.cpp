#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "NerioSwitchTable/NerioTablePortMirror.h"
#include "NerioSwitchTable/NerioTableProtocolRemap.h"
#include "agent/FamilyOf.h"

namespace Agent {

std::vector<Family> aclPlainFamilies() {
    return {
        familyOf<PlainJsonTable>("aclPortRange", NerioSwitchTable::aclPortRangeTableFactory, "pipeline"),
        familyOf<PlainJsonTable>("protocolRemap", NerioSwitchTable::protocolRemapTableFactory, "pipeline"),
        familyOf<PlainJsonTable>("rxPortMirror", NerioSwitchTable::rxPortMirrorTableFactory),
    };
}

}  // namespace Agent

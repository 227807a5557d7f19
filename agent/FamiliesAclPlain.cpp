#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "NerioSwitchTable/NerioTablePortMirror.h"
#include "NerioSwitchTable/NerioTableProtocolRemap.h"
#include "agent/FamilyOf.h"

namespace Agent {

std::vector<Family> aclPlainFamilies() {
    return {
        familyOf<PlainJsonTable>("aclPortRange",
                                 "Per ACL and row, the port ranges of a pipeline's ACL rules.",
                                 NerioSwitchTable::aclPortRangeTableFactory, "pipeline"),
        familyOf<PlainJsonTable>("protocolRemap",
                                 "Per IP protocol, its number in the keys of a pipeline's ACL rules.",
                                 NerioSwitchTable::protocolRemapTableFactory, "pipeline"),
        familyOf<PlainJsonTable>("rxPortMirror",
                                 "Per chip port, where copies of the packets that it receives go.",
                                 NerioSwitchTable::rxPortMirrorTableFactory),
    };
}

}  // namespace Agent

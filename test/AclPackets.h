#pragma once

#include "NerioSwitch/AclHash.h"

#include "chip/AclLookup.h"

namespace NerioTest {

/** What a packet looks like to the chip that a rule's key is meant for. */
inline Chip::AclFields packetOf(NerioSwitch::AclHashKey const& key) {
    Chip::AclFields fields{.aclId = key.aclId(),
                           .firstAddress = key.firstPrefix().address().hostOrder(),
                           .firstLength = key.firstPrefix().len(),
                           .secondAddress = key.secondPrefix().address().hostOrder(),
                           .secondLength = key.secondPrefix().len(),
                           .protocol = key.protocol().value(),
                           .vrf = key.vrfId().value(),
                           .keyFlag = key.keyFlag()};
    if (key.port() != 0 || key.portIsZero()) fields.port = key.port();
    return fields;
}

}  // namespace NerioTest

#include "NerioSwitchTable/NerioFloodCount.h"

namespace NerioSwitchTable {

U32 const* numFloodNexthops(NerioSwitch::ProfileInfo const& profile) {
    auto const found = profile.supportedEntries.find("floodSet");
    return found == profile.supportedEntries.end() ? nullptr : &found->second;
}

}  // namespace NerioSwitchTable

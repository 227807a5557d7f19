#include "FamilyCases.h"

#include "NerioSwitchTable/NerioTablePortConfig.h"

namespace NerioTest {

using namespace NerioSwitchTable;

namespace {

NerioSwitch::ChipPortId randomPort(Random& random, NerioSwitch::ProfileInfo const& profile) {
    return below(random, profile.numPorts);
}

}  // namespace

std::vector<FamilyCase> const& familyCases() {
    static std::vector<FamilyCase> const cases = {
        familyCase<PortConfigTable>(
            "portConfig",
            [](auto& random, auto const& profile) { return PortConfigKey(randomPort(random, profile)); }),
    };
    return cases;
}

}  // namespace NerioTest

// A hardware table that the collection lacks is a programming error in tables of several copies or pipelines.
#include <gtest/gtest.h>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "NerioSwitchTable/NerioTableLagGroup.h"
#include "NerioSwitchTable/NerioTableLagHashControl.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"
#include "NerioSwitchTable/NerioTablePortMirror.h"
#include "NerioSwitchTable/NerioTableProtocolRemap.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;

class MissingHwTableDeathTest : public testing::Test {
protected:
    /** Creates a table's hardware tables, none of which its convertor finds. */
    void create(Belmo::Ptr<NerioSwitchApi::SwTable> const& table) const {
        auto const descriptors = Belmo::make<NerioSwitchApi::HwTableDescriptorConfig>(
            Chip::simulatedChip(*profile), NerioSwitchApi::memoryShadowStore(),
            Belmo::make<NerioSwitchApi::HwTableCollection>());
        table->profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(profile));
        table->doSetProfileConvertor(Belmo::make<NerioSwitchApi::SwTableTypes>(
            descriptors, Belmo::make<NerioSwitchApi::HwTableCollection>()));
        table->doCreateHwTable();
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
};

TEST_F(MissingHwTableDeathTest, IngressCopiesOfALagAndMirrorsHaveOneText) {
    EXPECT_DEATH(create(lagGroupTableFactory("a")), "Assertion failed: hwTable ");
    EXPECT_DEATH(create(lagMembershipTableFactory("a")), "Assertion failed: hwTable ");
    EXPECT_DEATH(create(rxPortMirrorTableFactory("a")), "Assertion failed: hwTable ");
}

TEST_F(MissingHwTableDeathTest, TheCpuPipelinesTableOfALagHasAnother) {
    profile->layouts.erase(NerioSwitch::TableLayoutEnum::tableLayoutL2);
    EXPECT_DEATH(create(lagGroupTableFactory("a")), "Assertion failed: table ");
    EXPECT_DEATH(create(lagMembershipTableFactory("a")), "Assertion failed: table ");
}

TEST_F(MissingHwTableDeathTest, AsDoTablesOfPipelinesAndPorts) {
    EXPECT_DEATH(create(lagLookUpTableFactory("a")), "Assertion failed: table ");
    EXPECT_DEATH(create(lagHashControlTableFactory("a")), "Assertion failed: table ");
    EXPECT_DEATH(create(aclPortRangeTableFactory("a", 1)), "Assertion failed: table ");
    EXPECT_DEATH(create(protocolRemapTableFactory("a", 1)), "Assertion failed: table ");
}

}  // namespace

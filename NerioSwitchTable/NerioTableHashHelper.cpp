#include "NerioSwitchTable/NerioTableHashHelper.h"

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

NerioTableHashHelper::~NerioTableHashHelper() = default;

Belmo::Ptr<NerioSwitch::ProfileInfo const> const& NerioTableHashHelper::profile() const {
    BELMO_ASSERT(swTable());
    return swTable()->profile();
}

void NerioTableHashHelper::doInit() {
    nameIs(TableConstants::cliName(tableIdx_));
}

}  // namespace NerioSwitchTable

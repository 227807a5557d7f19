#pragma once

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "NerioSwitch/ProfileInfo.h"
#include "NerioSwitchApi/HwTable.h"
#include "NerioSwitchApi/RegisterBus.h"
#include "NerioSwitchApi/Shadow.h"
#include "NerioSwitchApi/SwTable.h"
#include "TableGauge/TableGauge.h"

namespace NerioSwitchApi {

/**
 * Brings tables up over one chip: a profile, the bus to its registers, and the shadow of what it holds.
 * Nothing of it is global: two frameworks in one process do not meet.
 */
class BELMO_EXPORT TableFramework {
public:
    TableFramework(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile, Belmo::Ptr<RegisterBus> bus,
                   Belmo::Ptr<ShadowStore> shadows);
    ~TableFramework();
    TableFramework(TableFramework const&) = delete;
    TableFramework& operator=(TableFramework const&) = delete;

    /**
     * Attaches a table and brings it up; the agent keeps its reference. `StartMode::cold` forgets the shadow
     * and writes every row. `StartMode::warm` rebuilds the software table from the shadow and writes what the
     * shadow does not hold. A failure leaves the table detached, with its entries, to be tried again.
     */
    void tableIs(Belmo::Ptr<SwTable> const& table, StartMode mode);

    /**
     * Reads the hit bits of every table that has them. Each hit reaches its entry's status with the time
     * `now`, in seconds. Returns the number of hits; throws `BusException`.
     */
    U32 pollHitBits(Belmo::Duration now);

    Belmo::Ptr<NerioSwitch::ProfileInfo const> const& profile() const { return profile_; }
    TableGauge::Gauges const& gauges() const { return *gauges_; }

private:
    void bringUp(SwTable& table, StartMode mode);

    Belmo::Ptr<NerioSwitch::ProfileInfo const> profile_;
    Belmo::Ptr<SwTableTypes> types_;
    Belmo::Ptr<TableGauge::Gauges> gauges_;
};

}  // namespace NerioSwitchApi

#pragma once

#include <map>
#include <tuple>
#include <vector>

#include "NerioSwitch/ProfileInfo.h"

#include "agent/ImportReport.h"
#include "agent/NatAgent.h"

namespace Agent {

/**
 * Gathers static translations. One that comes again is one, as a port of TCP and of UDP is; one that matches
 * what another matches goes to the report, and so do all where the chip does not translate.
 */
class NatImport {
public:
    NatImport(NerioSwitch::ProfileInfo const& profile, ImportReport& report)
        : profile_(profile), report_(report) {}

    void translationIs(NatTranslation const& translation, Belmo::String const& place);

    std::vector<NatTranslation> const& translations() const { return translations_; }

private:
    /** An address, its port, and the peers that it is for. */
    using Side = std::tuple<Lanvo::IpAddr, U16, Lanvo::Prefix>;
    struct Told {
        std::size_t number;
        Belmo::String place;
    };

    NerioSwitch::ProfileInfo const& profile_;
    ImportReport& report_;
    std::vector<NatTranslation> translations_;
    std::map<Side, Told> insides_;
    std::map<Side, Told> outsides_;
};

}  // namespace Agent

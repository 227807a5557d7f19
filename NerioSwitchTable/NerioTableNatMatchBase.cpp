#include "NerioSwitchTable/NerioTableNatMatchBase.h"

#include "Sorn/Format.h"

namespace NerioSwitchTable {

Belmo::String NatMatchKey::stringValue() const {
    return Sorn::_fmt("natType=%u dip=%s dport=%u sip=%s sport=%u ingressProfileId=%u filterPfx=%s",
                      U32{natType_.value()}, dip_.text().c_str(), U32{dport_}, sip_.text().c_str(),
                      U32{sport_}, U32{ingressProfileId_}, filterPfx_.text().c_str());
}

}  // namespace NerioSwitchTable

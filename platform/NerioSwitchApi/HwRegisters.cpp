#include "NerioSwitchApi/HwRegisters.h"

namespace NerioSwitchApi {

HwAddressColl::~HwAddressColl() = default;
HwTableRegisterMapping::~HwTableRegisterMapping() = default;

Belmo::Ptr<HwAddressColl const> addressesOf(Belmo::String const& prefix,
                                            std::initializer_list<char const*> registers) {
    auto addresses = Belmo::make<HwAddressColl>();
    U8 size = 0;
    for (auto const* name : registers)
        addresses->addressIs(size++, prefix + name);
    addresses->sizeIs(size);
    return addresses;
}

Belmo::Ptr<HwAddressColl const> addressOf(Belmo::String const& path) {
    return addressesOf(path, {""});
}

Belmo::Ptr<HwAddressColl const> HwTableRegisterMappingConst::getRegister(HwIndex) const {
    return registers_;
}

Belmo::Ptr<HwAddressColl const> HwTableRegisterMappingColl::getRegister(HwIndex index) const {
    auto const found = registers_.find(index);
    return found == registers_.end() ? nullptr : found->second;
}

Belmo::Ptr<HwAddressColl const> HwTableRegisterMappingRange::getRegister(HwIndex index) const {
    auto const found = registers_.lower_bound(index);
    return found == registers_.end() ? nullptr : found->second;
}

}  // namespace NerioSwitchApi

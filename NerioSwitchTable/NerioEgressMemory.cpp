#include "NerioSwitchTable/NerioEgressMemory.h"

#include "Sorn/Format.h"

namespace NerioSwitchTable {

Belmo::Ptr<NerioSwitchApi::HwAddressColl const> egressMemoryRegisters(U32 processor) {
    constexpr U8 words = 8;
    auto registers = Belmo::make<NerioSwitchApi::HwAddressColl>();
    for (U8 word = 0; word < words; ++word) {
        registers->addressIs(word, Sorn::_fmt("egress/processor[%u]/%s", processor,
                                              word % 2 == 0 ? "lum_data" : "lum_ctl_addr_data"));
    }
    registers->sizeIs(words);
    return registers;
}

}  // namespace NerioSwitchTable

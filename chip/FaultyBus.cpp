#include "chip/FaultyBus.h"

#include <csignal>
#include <fmt/format.h>
#include <unistd.h>
#include <utility>

namespace Chip {

using NerioSwitchApi::RegisterHandle;

namespace {

void endProcess() {
    ::kill(::getpid(), SIGKILL);
}

}  // namespace

FaultyBus::FaultyBus(Belmo::Ptr<NerioSwitchApi::RegisterBus> bus) : bus_(std::move(bus)) {}
FaultyBus::~FaultyBus() = default;

void FaultyBus::write(RegisterHandle handle, U32 word) {
    Fault const fault = ++writes_ == faultyWrite_ ? fault_ : Fault::none;
    if (fault == Fault::killBefore) endProcess();
    if (fault == Fault::stall) return;
    if (fault == Fault::fail) {
        throw NerioSwitchApi::BusException(
            fmt::format("register write {} failed: {} = 0x{:08X}", writes_, path(handle), word));
    }
    bus_->write(handle, word);
    if (fault == Fault::killAfter) endProcess();
}

}  // namespace Chip

#pragma once

#include <functional>
#include <utility>

#include "NerioSwitchApi/RegisterBus.h"

namespace NerioTest {

/** Looks at the chip after every single register write. */
struct WatchedBus final : NerioSwitchApi::RegisterBus {
    explicit WatchedBus(Belmo::Ptr<NerioSwitchApi::RegisterBus> around) : bus(std::move(around)) {}
    NerioSwitchApi::RegisterHandle address(std::string_view path) override { return bus->address(path); }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override { return bus->path(handle); }
    U32 read(NerioSwitchApi::RegisterHandle handle) override { return bus->read(handle); }
    void write(NerioSwitchApi::RegisterHandle handle, U32 word) override {
        bus->write(handle, word);
        if (look) look();
    }

    Belmo::Ptr<NerioSwitchApi::RegisterBus> bus;
    std::function<void()> look;
};

}  // namespace NerioTest

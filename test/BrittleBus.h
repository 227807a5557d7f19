#pragma once

#include <utility>

#include "NerioSwitchApi/RegisterBus.h"

namespace NerioTest {

/** A bus that goes down behind some writes and stays so until it is healed. */
class BrittleBus final : public NerioSwitchApi::RegisterBus {
public:
    explicit BrittleBus(Belmo::Ptr<NerioSwitchApi::RegisterBus> around) : bus_(std::move(around)) {}

    NerioSwitchApi::RegisterHandle address(std::string_view path) override { return bus_->address(path); }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override { return bus_->path(handle); }
    U32 read(NerioSwitchApi::RegisterHandle handle) override { return bus_->read(handle); }
    void write(NerioSwitchApi::RegisterHandle handle, U32 word) override {
        if (writes_ >= downFrom_ && writes_ < downUntil_) {
            ++writes_;
            throw NerioSwitchApi::BusException("the bus is down");
        }
        bus_->write(handle, word);
        ++writes_;
    }

    /** The bus is down behind that many writes from now on, for so many further ones. */
    void failAfter(U64 writes, U64 count = ~U32{0}) {
        downFrom_ = writes_ + writes;
        downUntil_ = downFrom_ + count;
    }
    void heal() { downFrom_ = downUntil_ = ~U64{0}; }
    U64 writes() const { return writes_; }

private:
    Belmo::Ptr<NerioSwitchApi::RegisterBus> bus_;
    U64 writes_ = 0;
    U64 downFrom_ = ~U64{0};
    U64 downUntil_ = ~U64{0};
};

}  // namespace NerioTest

#pragma once

#include <string_view>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"
#include "NerioSwitchApi/RegisterBus.h"

namespace Chip {

/** What happens to a register write. */
enum class Fault : U8 {
    none,
    /** It throws `NerioSwitchApi::BusException` and has no effect. */
    fail,
    /** It is swallowed: no effect, and no word about it. */
    stall,
    /** The process ends by SIGKILL before it takes effect. */
    killBefore,
    /** The process ends by SIGKILL once it took effect. */
    killAfter,
};

/** A bus around another on which one chosen register write goes wrong. A row counts word by word. */
class BELMO_EXPORT FaultyBus final : public NerioSwitchApi::RegisterBus {
public:
    explicit FaultyBus(Belmo::Ptr<NerioSwitchApi::RegisterBus> bus);
    ~FaultyBus() override;

    NerioSwitchApi::RegisterHandle address(std::string_view path) override { return bus_->address(path); }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override { return bus_->path(handle); }
    U32 read(NerioSwitchApi::RegisterHandle handle) override { return bus_->read(handle); }
    void write(NerioSwitchApi::RegisterHandle handle, U32 word) override;

    /** Chooses the write that goes wrong, counted from 1 over the bus's life, in place of the last choice. */
    void faultIs(Fault fault, U64 write) {
        fault_ = fault;
        faultyWrite_ = write;
    }
    /** Writes so far, the one that went wrong included. */
    U64 writes() const { return writes_; }

private:
    Belmo::Ptr<NerioSwitchApi::RegisterBus> bus_;
    Fault fault_ = Fault::none;
    U64 faultyWrite_ = 0;
    U64 writes_ = 0;
};

}  // namespace Chip

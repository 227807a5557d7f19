#pragma once

#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"
#include "NerioSwitchApi/RegisterBus.h"

namespace Chip {

/** One register write. */
struct RegisterWrite {
    NerioSwitchApi::RegisterHandle handle;
    U32 word = 0;

    friend bool operator==(RegisterWrite const&, RegisterWrite const&) = default;
};

/** A bus around another that keeps, in order, the register writes that took effect. */
class BELMO_EXPORT RecordingBus final : public NerioSwitchApi::RegisterBus {
public:
    explicit RecordingBus(Belmo::Ptr<NerioSwitchApi::RegisterBus> bus);
    ~RecordingBus() override;

    NerioSwitchApi::RegisterHandle address(std::string_view path) override { return bus_->address(path); }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override { return bus_->path(handle); }
    U32 read(NerioSwitchApi::RegisterHandle handle) override { return bus_->read(handle); }
    void write(NerioSwitchApi::RegisterHandle handle, U32 word) override;
    void writeRow(std::span<NerioSwitchApi::RegisterHandle const> handles, U32 const* words) override;

    /** Recording is on from the start. Writes recorded before it is switched off are kept. */
    void recordingIs(bool on) { recording_ = on; }
    /** The writes since the last call of this or of `takeByPath`. */
    std::vector<RegisterWrite> take();
    /** The same with the registers' paths. */
    std::vector<std::pair<Belmo::String, U32>> takeByPath();

private:
    Belmo::Ptr<NerioSwitchApi::RegisterBus> bus_;
    bool recording_ = true;
    std::vector<RegisterWrite> writes_;
};

}  // namespace Chip

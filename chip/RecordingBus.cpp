#include "chip/RecordingBus.h"

namespace Chip {

using NerioSwitchApi::RegisterBus;
using NerioSwitchApi::RegisterHandle;

RecordingBus::RecordingBus(Belmo::Ptr<RegisterBus> bus) : bus_(std::move(bus)) {}
RecordingBus::~RecordingBus() = default;

void RecordingBus::write(RegisterHandle handle, U32 word) {
    bus_->write(handle, word);
    if (recording_) writes_.push_back({handle, word});
}

void RecordingBus::writeRow(std::span<RegisterHandle const> handles, U32 const* words) {
    if (recording_) {
        RegisterBus::writeRow(handles, words);  // word by word: a row may fail halfway
    } else {
        bus_->writeRow(handles, words);
    }
}

std::vector<RegisterWrite> RecordingBus::take() {
    return std::exchange(writes_, {});
}

std::vector<std::pair<Belmo::String, U32>> RecordingBus::takeByPath() {
    std::vector<std::pair<Belmo::String, U32>> writes;
    for (auto const& write : take())
        writes.emplace_back(bus_->path(write.handle), write.word);
    return writes;
}

}  // namespace Chip

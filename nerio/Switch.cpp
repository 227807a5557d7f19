#include "nerio/Switch.h"

#include <utility>

namespace Nerio {

using NerioSwitchApi::StartMode;

Switch::Switch(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile, Directory directory)
    : profile_(std::move(profile)), directory_(std::move(directory)) {}

Switch::~Switch() = default;

void Switch::profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile) {
    profile_ = std::move(profile);
}

Agent::JsonTable* Switch::table(std::string_view name) const {
    for (auto const& member : tables_) {
        if (member.spec.name == name) return member.table.get();
    }
    return nullptr;
}

Agent::JsonTable* Switch::tableIs(Agent::TableSpec const& spec) {
    if (table(spec.name) != nullptr) return nullptr;
    tables_.push_back({spec, Agent::makeTable(spec)});
    return tables_.back().table.get();
}

void Switch::open() {
    Belmo::Ptr<NerioSwitchApi::RegisterBus> chip;
    if (directory_) {
        std::filesystem::create_directories(*directory_);
        shadows_ = NerioSwitchApi::mappedShadowStore((*directory_ / "shadow").string());
        chip = Chip::simulatedChip(*profile_, (*directory_ / "chip").string());
    } else {
        shadows_ = NerioSwitchApi::memoryShadowStore();
        chip = Chip::simulatedChip(*profile_);
    }
    bus_ = Belmo::make<Chip::RecordingBus>(chip);
}

void Switch::start(StartMode mode, Started const& started) {
    if (!bus_) open();
    if (!framework_) framework_ = std::make_unique<NerioSwitchApi::TableFramework>(profile_, bus_, shadows_);
    for (auto const& [spec, table] : tables_) {
        if (table->table()->initialized()) continue;
        framework_->tableIs(table->table(), mode);
        if (started) started(spec, *table);
    }
}

void Switch::restart(StartMode mode, std::function<void(Agent::JsonTable&)> const& made) {
    for (auto& [spec, table] : tables_)
        table.reset();
    framework_.reset();
    for (auto& [spec, table] : tables_) {
        table = Agent::makeTable(spec);
        made(*table);
    }
    start(mode);
}

std::vector<std::pair<Belmo::String, U32>> Switch::takeWrites() {
    return bus_ ? bus_->takeByPath() : std::vector<std::pair<Belmo::String, U32>>();
}

std::size_t Switch::takeWriteCount() {
    return bus_ ? bus_->take().size() : 0;
}

}  // namespace Nerio

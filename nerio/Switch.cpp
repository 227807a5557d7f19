#include "nerio/Switch.h"

#include <fmt/format.h>
#include <new>
#include <system_error>
#include <utility>

#include "nerio/FillSampler.h"

namespace Nerio {

using NerioSwitchApi::StartMode;

void directoryIs(std::filesystem::path const& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    // A link to a directory counts as one.
    if (error && !std::filesystem::is_directory(directory)) {
        throw Belmo::ResourceException(
            fmt::format("cannot make {}: {}", directory.string(), error.message()));
    }
}

namespace {

/** The chip of a profile, whose numbers may ask for more registers than memory holds. */
Belmo::Ptr<Chip::SimulatedChip> chipOf(NerioSwitch::ProfileInfo const& profile,
                                       Switch::Directory const& directory) {
    try {
        if (directory) return Chip::simulatedChip(profile, (*directory / "chip").string());
        return Chip::simulatedChip(profile);
    } catch (std::bad_alloc const&) {
        throw Belmo::ResourceException("a chip of this profile does not fit into memory");
    }
}

/** Has the registers of another bus, and reaches none of them. */
class DryBus final : public NerioSwitchApi::RegisterBus {
public:
    explicit DryBus(Belmo::Ptr<RegisterBus> bus) : bus_(std::move(bus)) {}

    NerioSwitchApi::RegisterHandle address(std::string_view path) override { return bus_->address(path); }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override { return bus_->path(handle); }
    U32 read(NerioSwitchApi::RegisterHandle) override { return 0; }
    void write(NerioSwitchApi::RegisterHandle, U32) override {}

private:
    Belmo::Ptr<RegisterBus> bus_;
};

}  // namespace

Switch::Switch(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile, Directory directory,
               Belmo::Ptr<NerioSwitchApi::RegisterBus> elsewhere)
    : profile_(std::move(profile)), directory_(std::move(directory)), elsewhere_(std::move(elsewhere)) {}

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
    auto* table = tables_.back().table.get();
    if (observer_ != nullptr) observer_->made(spec, *table);
    return table;
}

void Switch::open() {
    if (bus_) return;
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows;
    if (directory_) {
        directoryIs(*directory_);
        auto const* name = isSimulated() ? "shadow" : "bus-shadow";
        shadows = NerioSwitchApi::mappedShadowStore((*directory_ / name).string());
    } else {
        shadows = NerioSwitchApi::memoryShadowStore();
    }
    if (isSimulated()) chip_ = chipOf(*profile_, directory_);
    bus_ = Belmo::make<Chip::RecordingBus>(isSimulated() ? chip_ : elsewhere_);
    tableBus_ = bus_;
    if (sampler_ != nullptr) tableBus_ = Belmo::make<SampledBus>(bus_, *sampler_);
    shadows_ = std::move(shadows);
}

std::unique_ptr<NerioSwitchApi::TableFramework> Switch::newFramework() const {
    return std::make_unique<NerioSwitchApi::TableFramework>(profile_, tableBus_, shadows_);
}

Chip::SimulatedChip& Switch::chip() {
    open();
    return *chip_;
}

NerioSwitchApi::ShadowStore& Switch::shadows() {
    open();
    return *shadows_;
}

void Switch::attach(Belmo::Ptr<NerioSwitchApi::SwTable> const& table, StartMode mode) {
    open();
    if (!framework_) framework_ = newFramework();
    if (sampler_ != nullptr) sampler_->tableIs(table);
    framework_->tableIs(table, mode);
}

void Switch::adopt(Agent::TableSpec const& spec, Belmo::Ptr<NerioSwitchApi::SwTable> const& table,
                   StartMode mode) {
    auto json = Agent::family(spec.family)->wrap(table);
    if (observer_ != nullptr) {
        observer_->made(spec, *json);
        observer_->starting(mode);
    }
    attach(table, mode);
    tables_.push_back({spec, std::move(json)});
    if (observer_ != nullptr) observer_->cameUp(spec, *tables_.back().table);
}

void Switch::forEachTable(Visitor const& visit) const {
    for (auto const& [spec, table] : tables_)
        visit(spec, *table);
}

void Switch::start(StartMode mode, Visitor const& started) {
    open();
    if (observer_ != nullptr) observer_->starting(mode);
    for (auto const& [spec, table] : tables_) {
        if (table->table()->initialized()) continue;
        if (sampler_ != nullptr) sampler_->tableIs(spec.name, *table);
        attach(table->table(), mode);
        if (observer_ != nullptr) observer_->cameUp(spec, *table);
        if (started) started(spec, *table);
    }
}

void Switch::rehearseStart() const {
    Switch copy(profile_);
    rehearseStartOf(copy);
    if (isSimulated()) return;
    Switch dry(profile_, {}, Belmo::make<DryBus>(elsewhere_));
    rehearseStartOf(dry);
}

void Switch::rehearseStartOf(Switch& copy) const {
    for (auto const& [spec, table] : tables_) {
        if (table->table()->initialized()) continue;
        auto& copied = *copy.tableIs(spec);
        for (auto const& [key, result] : table->entries())
            copied.entryIs(key, result, {});
    }
    copy.start(StartMode::cold);
}

void Switch::restart(StartMode mode, Visitor const& made) {
    open();
    Members tables;
    auto framework = newFramework();
    for (auto const& old : tables_) {
        auto& table = tables.emplace_back(Member{old.spec, Agent::makeTable(old.spec)}).table;
        made(old.spec, *table);
        framework->tableIs(table->table(), mode);
    }
    tables_ = std::move(tables);
    framework_ = std::move(framework);
}

Agent::Verification Switch::verify(NerioSwitchApi::SwTable const& table) const {
    return Agent::verify(
        table, [this](auto const registers, auto const words) { chip_->readRow(registers, words); });
}

void Switch::hitIs(Belmo::String const& controlRegister, U32 word) {
    chip_->hitIs(controlRegister, word);
}

void Switch::pollHitBits(Belmo::Duration time) {
    if (framework_) framework_->pollHitBits(time);
}

RegisterWrites Switch::takeWrites() {
    if (!bus_) return {};
    auto writes = bus_->takeByPath();
    if (observer_ != nullptr) observer_->written(writes);
    return writes;
}

std::size_t Switch::takeWriteCount() {
    if (observer_ != nullptr) return takeWrites().size();
    return bus_ ? bus_->take().size() : 0;
}

}  // namespace Nerio

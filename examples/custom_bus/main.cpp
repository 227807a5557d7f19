// A register bus of one's own. This one keeps a journal in words; one to real hardware would speak to a
// device driver, a serial line or a simulator in another process instead.
#include <cstdio>
#include <map>
#include <utility>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTablePortConfig.h"

using namespace NerioSwitchTable;
using NerioSwitchApi::RegisterHandle;

namespace {

/** Takes every path for a register, and remembers what was written where. */
class JournalBus final : public NerioSwitchApi::RegisterBus {
public:
    struct Register {
        Belmo::String path;
        U32 word;
    };

    /** Called once for each register, when a table is brought up; from then on there are only handles. */
    RegisterHandle address(std::string_view path) override {
        // A bus that knows its registers throws `UnknownRegisterException` for all others.
        auto const next = static_cast<U32>(registers_.size());
        auto const [known, isNew] = numbers_.emplace(path, next);
        if (isNew) registers_.push_back({Belmo::String(path), 0});
        return {known->second};
    }
    Belmo::String path(RegisterHandle handle) const override { return registers_.at(handle.number).path; }
    U32 read(RegisterHandle handle) override { return registers_.at(handle.number).word; }
    /** A word that does not reach the hardware throws `BusException`: the same call then tries it again. */
    void write(RegisterHandle handle, U32 word) override {
        registers_.at(handle.number).word = word;
        journal_.push_back({path(handle), word});
    }

    std::vector<Register> takeJournal() { return std::exchange(journal_, {}); }

private:
    std::map<Belmo::String, U32, std::less<>> numbers_;
    std::vector<Register> registers_;
    std::vector<Register> journal_;
};

std::size_t print(char const* title, std::vector<JournalBus::Register> const& journal) {
    std::printf("%s: %zu writes\n", title, journal.size());
    for (std::size_t i = 0; i < journal.size() && i < 3; ++i)
        std::printf("    %s = 0x%x\n", journal[i].path.c_str(), journal[i].word);
    return journal.size();
}

}  // namespace

int main() {
    auto const profile = NerioSwitch::profilePreset("default");
    auto const bus = Belmo::make<JournalBus>();
    auto const shadows = NerioSwitchApi::memoryShadowStore();
    auto const key = PortConfigKey(5);
    auto const trunk = PortConfigResult().portModeIs(PortConfigMode::trunk);

    std::size_t cold = 0;
    std::size_t change = 0;
    {
        NerioSwitchApi::TableFramework framework(profile, bus, shadows);
        auto const ports = portConfigTableFactory("ports");
        framework.tableIs(ports, NerioSwitchApi::StartMode::cold);
        cold = print("cold start", bus->takeJournal());
        ports->entryIs(key, trunk);
        change = print("port 5 as a trunk", bus->takeJournal());
    }
    // The table is gone and comes back from the shadow; the chip has it all, and nothing is written.
    NerioSwitchApi::TableFramework framework(profile, bus, shadows);
    auto const ports = portConfigTableFactory("ports");
    framework.tableIs(ports, NerioSwitchApi::StartMode::warm);
    auto const warm = print("warm start", bus->takeJournal());
    std::printf("port 5: %s\n", ports->entry(key).resultString().c_str());

    auto const word = bus->read(bus->address("egress/port[5]/vlan_cfg"));
    return cold == profile->numPorts && change == 1 && warm == 0 && word == 0 && ports->entry(key) == trunk
               ? 0
               : 1;
}

#pragma once

#include <vector>

#include "Belmo/Publisher.h"

#include "agent/Json.h"
#include "nerio/Switch.h"

namespace Nerio {

/** Carries out the lines of a script, one JSON object each, over a switch of its own. */
class Script {
public:
    /** Over a simulated chip of the preset "default". */
    explicit Script(Switch::Directory directory = {});
    /** Over the chip that the bus leads to, or a simulated one of the profile. */
    Script(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile, Switch::Directory directory,
           Belmo::Ptr<NerioSwitchApi::RegisterBus> bus);

    /** The answer to a line: {"ok":true,...}, or {"ok":false,"error":TYPE,"message":TEXT} for one that fails.
     */
    Agent::Json answer(Agent::Json const& line);

private:
    using Json = Agent::Json;
    struct Operation;
    static std::vector<Operation> const& operations();

    Json profile(Json const& line);
    Json table(Json const& line);
    Json start(Json const& line);
    Json restart(Json const& line);
    Json entryIs(Json const& line);
    Json entryDel(Json const& line);
    Json entryDelAll(Json const& line);
    Json entry(Json const& line);
    Json entries(Json const& line);
    Json inconsistent(Json const& line);
    Json hwTables(Json const& line);
    Json registersOf(Json const& line);
    Json shadow(Json const& line);
    Json shadowIs(Json const& line);
    Json shadowCorrupt(Json const& line);
    Json registers(Json const& line);
    Json published(Json const& line);
    Json capacity(Json const& line);
    Json text(Json const& line);
    Json status(Json const& line);
    Json location(Json const& line);
    Json hash(Json const& line);
    Json hit(Json const& line);
    Json poll(Json const& line);

    Agent::JsonTable& tableOf(Json const& line) const;
    NerioSwitchApi::SwTableProfileConvertor& convertorOf(Json const& line) const;
    NerioSwitchApi::HwTableConfig& hwTableOf(Json const& line) const;
    Belmo::Subscription observe(Agent::TableSpec const& spec, Agent::JsonTable& table);

    /** An entry as it was: whether there was one, and its result. */
    struct EntryBefore {
        Json key;
        bool had;
        Json result;
    };
    template <class Change>
    Json changed(Agent::JsonTable& table, std::vector<EntryBefore> const& before, Change&& change);

    Switch switch_;
    std::vector<Belmo::Subscription> subscriptions_;
    Json changes_ = Json::array();
};

}  // namespace Nerio

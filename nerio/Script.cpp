#include "nerio/Script.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "agent/ProfileJson.h"
#include "agent/ValueJson.h"

namespace Nerio {

using Agent::Json;
using Agent::JsonException;
using Agent::JsonTable;
using Agent::Place;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::StartMode;

/** One kind of line: its name, the members it takes beside "op", and what carries it out. */
struct Script::Operation {
    std::string_view name;
    std::vector<std::string_view> members;
    Json (Script::*carryOut)(Json const&);
    /** The operation looks at further members itself. */
    bool openEnded = false;
};

std::vector<Script::Operation> const& Script::operations() {
    static std::vector<Operation> const all = {
        {"profile", {}, &Script::profile, true},
        {"table", {}, &Script::table, true},
        {"start", {"mode"}, &Script::start},
        {"restart", {"mode"}, &Script::restart},
        {"entryIs", {"table", "key", "result"}, &Script::entryIs},
        {"entryDel", {"table", "key"}, &Script::entryDel},
        {"entryDelAll", {"table"}, &Script::entryDelAll},
        {"entry", {"table", "key"}, &Script::entry},
        {"entries", {"table"}, &Script::entries},
        {"inconsistent", {"table"}, &Script::inconsistent},
        {"hwTables", {"table"}, &Script::hwTables},
        {"registersOf", {"table", "hwTable", "index"}, &Script::registersOf},
        {"shadow", {"table", "hwTable", "index"}, &Script::shadow},
        {"shadowIs", {"table", "hwTable", "index", "words"}, &Script::shadowIs},
        {"shadowCorrupt", {"table", "hwTable", "index"}, &Script::shadowCorrupt},
        {"registers", {}, &Script::registers},
        {"published", {}, &Script::published},
        {"capacity", {}, &Script::capacity},
        {"text", {"table", "key", "result"}, &Script::text},
        {"poll", {"time"}, &Script::poll},
        {"status", {"table"}, &Script::status},
        {"location", {"table", "key"}, &Script::location},
        {"hash", {"table", "key"}, &Script::hash},
        {"hit", {"table", "hwTable", "index"}, &Script::hit},
    };
    return all;
}

namespace {

Place const line;

[[noreturn]] void refuse(Belmo::String const& text) {
    throw JsonException(line, text);
}

StartMode modeOf(Json const& json) {
    auto const& mode = Agent::requiredString(json, "mode", line);
    if (mode == "cold") return StartMode::cold;
    if (mode == "warm") return StartMode::warm;
    refuse(fmt::format(R"(mode: {} is neither "cold" nor "warm")", Agent::shown(mode)));
}

U32 numberOf(Json const& json, char const* name) {
    return Agent::fromJson<U32>(Agent::requiredMember(json, name, line), line.member(name));
}

/** What a table tells; tables of other shapes have nothing of the kind. */
Json answered(Json const& json, std::optional<Json> answer) {
    if (answer) return *std::move(answer);
    refuse(fmt::format("table: {} has no {}", Agent::shown(json["table"]), json["op"].get<std::string>()));
}

Json registerPaths(NerioSwitchApi::HwTableConfig const& table, HwIndex index) {
    Json paths = Json::array();
    for (auto const handle : table.registersOf(index)) {
        paths.push_back(handle.exists() ? table.bus().path(handle) : Belmo::String());
    }
    return paths;
}

HwIndex rowOf(Json const& json, NerioSwitchApi::HwTableConfig const& table) {
    auto const index = numberOf(json, "index");
    if (index < table.shadow().firstIndex() || index > table.shadow().lastIndex()) {
        refuse(fmt::format("index: the hardware table has no row {}", index));
    }
    return index;
}

/** Which word of a row is its control word: the one that is no content. */
std::optional<U8> controlWordOf(NerioSwitchApi::SwTableProfileConvertor const& convertor,
                                NerioSwitchApi::HwTableConfig const& table, HwIndex row) {
    auto const registers = table.registersOf(row).size();
    for (U8 word = 0; word < registers; ++word) {
        if (convertor.hwStaticWord(word) != 0) return word;
    }
    return std::nullopt;
}

}  // namespace

Script::Script(Switch::Directory directory)
    : Script(NerioSwitch::profilePreset("default"), std::move(directory), {}) {}

Script::Script(Belmo::Ptr<NerioSwitch::ProfileInfo const> profile, Switch::Directory directory,
               Belmo::Ptr<NerioSwitchApi::RegisterBus> bus)
    : switch_(std::move(profile), std::move(directory), std::move(bus)) {}

Json Script::answer(Json const& json) {
    auto const published = changes_.size();
    try {
        auto const& name = Agent::requiredString(json, "op", line);
        auto const& all = operations();
        auto const operation = std::find_if(all.begin(), all.end(),
                                            [&](auto const& candidate) { return candidate.name == name; });
        if (operation == all.end()) refuse(fmt::format("unknown op {}", Agent::shown(name)));
        for (auto const& [member, value] : json.items()) {
            auto const& known = operation->members;
            bool const isKnown =
                member == "op" || std::find(known.begin(), known.end(), member) != known.end();
            if (!isKnown && !operation->openEnded)
                refuse(fmt::format("unknown member {} of {}", Agent::shown(member), name));
        }
        Json result{{"ok", true}};
        result.update((this->*operation->carryOut)(json));
        return result;
    } catch (Belmo::Exception const& failure) {
        changes_.erase(changes_.begin() + static_cast<Json::difference_type>(published), changes_.end());
        return {{"ok", false}, {"error", failure.typeName()}, {"message", failure.what()}};
    }
}

Json Script::profile(Json const& json) {
    auto profile = Agent::profileFromJson(json, line, {"op"});
    if (switch_.hasChip()) refuse("the profile is fixed once a table has been started");
    switch_.profileIs(profile);
    return Json::object();
}

Json Script::table(Json const& json) {
    auto const spec = Agent::tableSpecFromJson(json, line, {"op"});
    auto* table = switch_.tableIs(spec);
    if (table == nullptr) refuse(fmt::format("name: there is a table {} already", Agent::shown(spec.name)));
    subscriptions_.push_back(observe(spec, *table));
    return Json::object();
}

/** A table goes by the name in its line, which may not be the one it has. */
Belmo::Subscription Script::observe(Agent::TableSpec const& spec, JsonTable& table) {
    return table.observe([this, name = spec.name](std::string_view attribute, Json key) {
        changes_.push_back({name, attribute, std::move(key)});
    });
}

Json Script::start(Json const& json) {
    auto const mode = modeOf(json);
    switch_.rehearseStart();
    switch_.start(mode);
    return Json::object();
}

Json Script::restart(Json const& json) {
    std::vector<Belmo::Subscription> subscriptions;
    switch_.restart(modeOf(json), [&](Agent::TableSpec const& spec, JsonTable& table) {
        subscriptions.push_back(observe(spec, table));
    });
    subscriptions_ = std::move(subscriptions);
    return Json::object();
}

JsonTable& Script::tableOf(Json const& json) const {
    auto const& name = Agent::requiredString(json, "table", line);
    auto* table = switch_.table(name);
    if (table == nullptr) refuse(fmt::format("table: there is no table {}", Agent::shown(name)));
    return *table;
}

NerioSwitchApi::SwTableProfileConvertor& Script::convertorOf(Json const& json) const {
    auto const convertor = tableOf(json).table()->profileConvertorPtr();
    if (!convertor) refuse(fmt::format("table: {} is not started", Agent::shown(json["table"])));
    return *convertor;
}

NerioSwitchApi::HwTableConfig& Script::hwTableOf(Json const& json) const {
    auto const& tables = convertorOf(json).hwTables();
    auto const id = numberOf(json, "hwTable");
    auto const found = tables.find(id);
    if (found == tables.end()) refuse(fmt::format("hwTable: the table has no hardware table {}", id));
    return *found->second;
}

/**
 * Carries out a change of a table. One that fails after the table took it, because its row could not be read
 * or written, is taken back: `before` are the entries that it may have changed.
 */
template <class Change>
Json Script::changed(JsonTable& table, std::vector<EntryBefore> const& before, Change&& change) {
    try {
        return change();
    } catch (Belmo::Exception const&) {
        for (auto const& [key, had, result] : before) {
            try {
                if (had) {
                    table.entryIs(key, result, line);
                } else {
                    table.entryDel(key, line);
                }
            } catch (Belmo::Exception const&) {
                // The row at fault fails again; the table has its entry back all the same.
            }
        }
        throw;
    }
}

Json Script::entryIs(Json const& json) {
    auto& table = tableOf(json);
    auto const& key = Agent::requiredMember(json, "key", line);
    auto const& result = Agent::requiredMember(json, "result", line);
    auto const [had, stored] = table.entry(key, line);
    return changed(table, {{key, had, stored}}, [&] {
        table.entryIs(key, result, line);
        return Json::object();
    });
}

Json Script::entryDel(Json const& json) {
    auto& table = tableOf(json);
    auto const& key = Agent::requiredMember(json, "key", line);
    auto const [had, stored] = table.entry(key, line);
    return changed(table, {{key, had, stored}}, [&] { return Json{{"result", table.entryDel(key, line)}}; });
}

Json Script::entryDelAll(Json const& json) {
    auto& table = tableOf(json);
    std::vector<EntryBefore> before;
    for (auto& [key, result] : table.entries())
        before.push_back({std::move(key), true, std::move(result)});
    return changed(table, before, [&] {
        table.entryDelAll();
        return Json::object();
    });
}

Json Script::entry(Json const& json) {
    auto const [has, result] = tableOf(json).entry(Agent::requiredMember(json, "key", line), line);
    return {{"has", has}, {"result", result}};
}

Json Script::entries(Json const& json) {
    Json all = Json::array();
    for (auto& [key, result] : tableOf(json).entries()) {
        all.push_back({{"key", std::move(key)}, {"result", std::move(result)}});
    }
    return {{"entries", std::move(all)}};
}

Json Script::inconsistent(Json const& json) {
    return {{"keys", tableOf(json).inconsistent()}};
}

Json Script::hwTables(Json const& json) {
    auto const& convertor = convertorOf(json);
    Json all = Json::array();
    for (auto const& [id, descriptor] : convertor.descriptors()) {
        all.push_back({{"id", id},
                       {"name", descriptor->name()},
                       {"firstIndex", descriptor->firstIndex()},
                       {"lastIndex", descriptor->lastIndex()},
                       {"registers", registerPaths(*convertor.hwTable(id), descriptor->firstIndex())}});
    }
    return {{"hwTables", std::move(all)}};
}

Json Script::registersOf(Json const& json) {
    auto const& table = hwTableOf(json);
    return {{"registers", registerPaths(table, rowOf(json, table))}};
}

Json Script::shadow(Json const& json) {
    auto const stored = hwTableOf(json).entry(numberOf(json, "index"));
    return {
        {"words", stored ? Json(std::vector<U32>(stored->words().begin(), stored->words().end())) : Json()}};
}

Json Script::shadowIs(Json const& json) {
    auto& shadow = hwTableOf(json).shadow();
    auto const index = numberOf(json, "index");
    auto const& words = Agent::requiredMember(json, "words", line);
    if (words.is_null()) {
        shadow.drop(index);
    } else {
        shadow.store(index, Agent::fromJson<std::vector<U32>>(words, line.member("words")));
    }
    return Json::object();
}

Json Script::shadowCorrupt(Json const& json) {
    hwTableOf(json).shadow().corrupt(numberOf(json, "index"));
    return Json::object();
}

Json Script::registers(Json const&) {
    Json writes = Json::array();
    for (auto const& [path, word] : switch_.takeWrites())
        writes.push_back({path, word});
    return {{"writes", std::move(writes)}};
}

Json Script::published(Json const&) {
    return {{"changes", std::exchange(changes_, Json::array())}};
}

Json Script::capacity(Json const&) {
    Json counters = Json::array();
    if (auto const* gauges = switch_.gauges()) {
        for (auto const& counter : gauges->counters()) {
            auto const& key = counter->key();
            counters.push_back({{"key", {key.table(), key.pipe(), key.swTable()}},
                                {"index", counter->index()},
                                {"capacity", counter->capacity()},
                                {"used", counter->used()}});
        }
    }
    return {{"counters", std::move(counters)}};
}

Json Script::text(Json const& json) {
    auto const& table = tableOf(json);
    Json texts{{"key", table.keyText(Agent::requiredMember(json, "key", line), line)}};
    if (auto const* result = Agent::optionalMember(json, "result"))
        texts["result"] = table.resultText(*result, line);
    return texts;
}

Json Script::status(Json const& json) {
    return {{"status", answered(json, tableOf(json).status())}};
}

Json Script::location(Json const& json) {
    auto const& key = Agent::requiredMember(json, "key", line);
    return {{"location", answered(json, tableOf(json).location(key, line))}};
}

Json Script::hash(Json const& json) {
    return answered(json, tableOf(json).hash(Agent::requiredMember(json, "key", line), line));
}

Json Script::hit(Json const& json) {
    if (!switch_.isSimulated()) refuse("op: hit needs the simulated chip");
    auto const& convertor = convertorOf(json);
    auto const& table = hwTableOf(json);
    auto const row = rowOf(json, table);
    auto const hits = convertor.hitBitTables().find(numberOf(json, "hwTable"));
    auto const control =
        hits == convertor.hitBitTables().end() ? std::nullopt : controlWordOf(convertor, table, row);
    if (!control) return answered(json, std::nullopt);
    auto entry = convertor.wantedEntry(hits->first, row);
    if (!entry) entry = table.storedEntry(row);
    if (!entry) refuse(fmt::format("index: the shadow does not hold row {}", row));
    switch_.hitIs(table.bus().path(table.registersOf(row)[*control]), entry->data(*control));
    return Json::object();
}

Json Script::poll(Json const& json) {
    auto const time =
        Agent::fromJson<Belmo::Duration>(Agent::requiredMember(json, "time", line), line.member("time"));
    switch_.pollHitBits(time);
    return Json::object();
}

}  // namespace Nerio

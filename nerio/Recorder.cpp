#include "nerio/Recorder.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

#include "agent/ProfileJson.h"

namespace Nerio {

using Agent::Json;
using Agent::JsonTable;
using Agent::TableSpec;
using NerioSwitchApi::StartMode;

namespace {

Json lineOf(char const* operation, Json const& members) {
    Json json{{"op", operation}};
    json.update(members);
    return json;
}

}  // namespace

Recorder::Recorder(NerioSwitch::ProfileInfo const& profile) {
    line(lineOf("profile", Agent::profileToJson(profile)).dump());
}

void Recorder::line(std::string const& text) {
    script_ += text;
    script_ += '\n';
    ++lines_;
}

void Recorder::made(TableSpec const& spec, JsonTable& table) {
    line(lineOf("table", Agent::tableSpecToJson(spec)).dump());
    for (auto const& [key, result] : table.entries())
        change(spec, table, key);
    subscriptions_.push_back(table.observe([this, spec, &table](std::string_view attribute, Json const& key) {
        if (attribute == "entry") change(spec, table, key);
    }));
}

void Recorder::starting(StartMode mode) {
    line(lineOf("start", {{"mode", mode == StartMode::cold ? "cold" : "warm"}}).dump());
}

void Recorder::change(TableSpec const& spec, JsonTable const& table, Json const& key) {
    auto const [has, result] = table.entry(key, {});
    auto const name = Json(spec.name).dump();
    if (has) {
        line(fmt::format(R"({{"op":"entryIs","table":{},"key":{},"result":{}}})", name, key.dump(),
                         result.dump()));
    } else {
        line(fmt::format(R"({{"op":"entryDel","table":{},"key":{}}})", name, key.dump()));
    }
}

void Recorder::written(RegisterWrites const& writes) {
    std::ranges::copy(writes, std::back_inserter(writes_));
}

}  // namespace Nerio

#include "nerio/StartReport.h"

#include <utility>

namespace Nerio {

using Agent::Json;

namespace {

Json toJson(std::vector<Agent::Difference> const& differences) {
    Json all = Json::array();
    for (auto const& difference : differences) {
        all.push_back({{"hwTable", difference.hwTable}, {"row", difference.row}, {"text", difference.text}});
    }
    return all;
}

Json toJson(Agent::HashPlacement const& placement) {
    return {{"rowsInUse", placement.rowsInUse},
            {"rows", placement.rows},
            {"moves", placement.moves},
            {"failedPlacements", placement.failedPlacements},
            {"entriesWithoutPlace", placement.entriesWithoutPlace}};
}

Json toJson(std::vector<TableReport> const& reports) {
    Json tables = Json::array();
    for (auto const& report : reports) {
        Json table{{"name", report.spec.name},
                   {"family", report.spec.family},
                   {"entries", report.entries},
                   {"defaultEntries", report.defaultEntries},
                   {"rows", report.rows},
                   {"registerWrites", report.registerWrites},
                   {"milliseconds", report.milliseconds},
                   {"differences", toJson(report.differences)}};
        if (report.placement) table["placement"] = toJson(*report.placement);
        tables.push_back(std::move(table));
    }
    return tables;
}

void verificationIs(Json& json, Agent::Verification const& verification) {
    json["verifiedRows"] = verification.rows;
    json["differences"] = toJson(verification.differences);
}

Json toJson(RouteReport const& report) {
    auto json = toJson(report.load);
    verificationIs(json, report.verification);
    return json;
}

Json toJson(WholeReport const& report) {
    Json json{{"wanted", report.wanted},
              {"placed", report.wanted - report.refused.size()},
              {"refused", report.refused},
              {"rowsInUse", report.rowsInUse},
              {"startWrites", report.startWrites},
              {"registerWrites", report.registerWrites},
              {"milliseconds", report.milliseconds}};
    verificationIs(json, report.verification);
    return json;
}

}  // namespace

Json toJson(StartReport const& report) {
    Json json{{"tables", toJson(report.tables)}};
    if (report.agents.routes) json["routes"] = toJson(*report.agents.routes);
    if (report.agents.multicastRoutes) json["multicastRoutes"] = toJson(*report.agents.multicastRoutes);
    if (report.agents.translations) json["translations"] = toJson(*report.agents.translations);
    return json;
}

}  // namespace Nerio

#include "agent/Import.h"

#include <algorithm>
#include <fmt/format.h>

#include "agent/AclImport.h"
#include "agent/ConfigDbImport.h"
#include "agent/IptablesImport.h"

namespace Agent {

std::optional<ImportForm> importFormOf(std::string_view text) {
    auto const first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return std::nullopt;
    switch (text[first]) {
        case '{':
            return ImportForm::configDb;
        case '@':
            return ImportForm::filters;
        case '#':
        case '*':
            return ImportForm::iptables;
        default:
            return std::nullopt;
    }
}

namespace {

/** Whether a line of a filter set asks for TCP flags: behind the protocol stand their values and a mask. */
bool asksForFlags(std::string_view line) {
    constexpr std::string_view mark = "/0x";
    auto const protocol = line.find(mark);
    auto const flags = protocol == std::string_view::npos ? protocol : line.find(mark, protocol + 1);
    if (flags == std::string_view::npos) return false;
    auto const mask = line.substr(flags + mark.size());
    auto const digits = mask.substr(0, mask.find_first_of(" \t\r"));
    return digits.find_first_not_of('0') != std::string_view::npos;
}

std::size_t countFlags(std::string_view text) {
    std::size_t count = 0;
    while (!text.empty()) {
        auto const end = std::min(text.find('\n'), text.size());
        if (asksForFlags(text.substr(0, end))) ++count;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return count;
}

}  // namespace

Imported importFilters(std::string_view text, Belmo::Ptr<NerioSwitch::ProfileInfo> profile) {
    Imported imported;
    imported.state.profile = std::move(profile);
    auto const filters = filterRulesFromText(Belmo::String(text));
    std::vector<AclImportRule> rules;
    rules.reserve(filters.size());
    for (auto const& rule : filters)
        rules.push_back({{rule}, true, fmt::format("rule {}", rules.size() + 1)});
    AclImport acls(*imported.state.profile, imported.report);
    acls.aclIs("filters", "", rules, AclImportOrder::all);
    imported.state.tables = acls.tables();
    if (auto const count = countFlags(text); count != 0) {
        imported.report.lost("rules", fmt::format("TCP flags of {} rules: no key looks at them, and they are "
                                                  "taken without",
                                                  count));
    }
    return imported;
}

Imported importText(std::string_view text, ImportForm form, Belmo::Ptr<NerioSwitch::ProfileInfo> profile) {
    switch (form) {
        case ImportForm::iptables:
            return importIptables(text, std::move(profile));
        case ImportForm::filters:
            return importFilters(text, std::move(profile));
        default:
            return importConfigDb(text, std::move(profile));
    }
}

}  // namespace Agent

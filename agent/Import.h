#pragma once

#include <optional>
#include <string_view>

#include "Belmo/Ptr.h"
#include "NerioSwitch/ProfileInfo.h"

#include "agent/Imported.h"

/* Other people's texts as state files. */
namespace Agent {

/** In which form a text says what a switch is to do. */
enum class ImportForm : U8 {
    /** A configuration database in JSON. */
    configDb,
    /** What `iptables-save` prints. */
    iptables,
    /** A filter set, as `filterRulesFromText` reads it. */
    filters,
};

/** The form that a text begins like; nothing for none of them. */
std::optional<ImportForm> importFormOf(std::string_view text);

/**
 * Imports a filter set as one ACL whose rules all permit. Since such rules decide nothing, all of them stay
 * in order. Throws `Belmo::RangeException`, which names the line of the first that is no rule.
 */
Imported importFilters(std::string_view text, Belmo::Ptr<NerioSwitch::ProfileInfo> profile);

/** Imports a text of that form. Throws as the importer of the form does. */
Imported importText(std::string_view text, ImportForm form, Belmo::Ptr<NerioSwitch::ProfileInfo> profile);

}  // namespace Agent

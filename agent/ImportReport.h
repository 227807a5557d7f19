#pragma once

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "Belmo/Types.h"

namespace Agent {

/** Something that a switch cannot be told, where it stands and why. */
struct ImportLoss {
    /** A JSON pointer as in RFC 6901, in which * stands for all members, or "line 7". */
    Belmo::String place;
    Belmo::String reason;

    friend bool operator==(ImportLoss const&, ImportLoss const&) = default;
};

/** A name of the source, and the number that the switch has for it. */
struct ImportName {
    /** "port", "port channel", "VRF", "ACL" or "next hop". */
    Belmo::String kind;
    Belmo::String name;
    U32 number;

    friend bool operator==(ImportName const&, ImportName const&) = default;
};

/** What became of an imported text: what was taken, what was not, and what names became of it. */
class ImportReport {
public:
    void took(std::string_view part, std::size_t count = 1);
    void lost(Belmo::String place, Belmo::String reason);
    void named(std::string_view kind, Belmo::String name, U32 number);

    /** How many were taken of each part, in the order of the first ones. */
    std::vector<std::pair<Belmo::String, std::size_t>> const& parts() const { return parts_; }
    std::size_t taken(std::string_view part) const;
    std::vector<ImportLoss> const& losses() const { return losses_; }
    std::vector<ImportName> const& names() const { return names_; }

private:
    std::vector<std::pair<Belmo::String, std::size_t>> parts_;
    std::vector<ImportLoss> losses_;
    std::vector<ImportName> names_;
};

}  // namespace Agent

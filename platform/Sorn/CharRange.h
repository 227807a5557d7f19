#pragma once

#include <concepts>
#include <string_view>

#include "Belmo/Export.h"
#include "Belmo/Types.h"

namespace Sorn {

/** A text that is being read: each parser takes what belongs to it from the front. */
class BELMO_EXPORT CharRange {
public:
    explicit CharRange(std::string_view text) : rest_(text) {}

    std::string_view rest() const { return rest_; }
    bool empty() const { return rest_.empty(); }

    /** Takes `text` from the front; false, and nothing taken, if something else stands there. */
    bool take(std::string_view text);
    /** Takes `text` from the front or throws `Belmo::DeserializationException`. */
    void expect(std::string_view text);
    /** Throws `Belmo::DeserializationException` if anything is left. */
    void expectEnd() const;
    /** Takes everything up to the next of `stops` or the end. */
    std::string_view takeUntil(std::string_view stops);
    /** Takes an unsigned number, decimal or "0x..."; throws `Belmo::DeserializationException`. */
    U64 takeNumber();
    /**
     * Takes a `float` or a `double`, "inf" included, rounded once to its type; throws
     * `Belmo::DeserializationException`, also for a number beyond the type.
     */
    template <std::floating_point Real>
    Real takeReal();

private:
    std::string_view rest_;
};

}  // namespace Sorn

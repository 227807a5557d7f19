#pragma once

#include <compare>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "Sorn/CharRange.h"
#include "Sorn/Hash.h"

namespace NerioSwitch {

/** Version of the chip's register interface: major and minor number, totally ordered. Text form "6.2". */
class BELMO_EXPORT ProfileHwApi {
public:
    constexpr ProfileHwApi() = default;
    constexpr ProfileHwApi(U16 major, U16 minor) : major_(major), minor_(minor) {}

    constexpr U16 majorVersion() const { return major_; }
    constexpr U16 minorVersion() const { return minor_; }

    friend constexpr bool operator==(ProfileHwApi, ProfileHwApi) = default;
    friend constexpr auto operator<=>(ProfileHwApi, ProfileHwApi) = default;  // NOLINT(modernize-use-nullptr)
    constexpr U32 hash(U32 seed) const { return Sorn::hashOf(U32{major_} << 16 | minor_, seed); }
    Belmo::String text() const;
    static ProfileHwApi fromText(Sorn::CharRange& range);

private:
    U16 major_ = 0;
    U16 minor_ = 0;
};

}  // namespace NerioSwitch

#include "NerioSwitchApi/RegisterBus.h"

#include <cstddef>
#include <fmt/format.h>

namespace NerioSwitchApi {

UnknownRegisterException::UnknownRegisterException(std::string_view path, std::string_view where)
    : Exception(fmt::format("{}{}the chip has no register \"{}\"", where, where.empty() ? "" : ": ", path)),
      path_(path) {}
UnknownRegisterException::~UnknownRegisterException() = default;
BusException::~BusException() = default;
RegisterBus::~RegisterBus() = default;

void RegisterBus::writeRow(std::span<RegisterHandle const> handles, U32 const* words) {
    for (std::size_t i = 0; i < handles.size(); ++i) {
        if (handles[i].exists()) write(handles[i], words[i]);
    }
}

}  // namespace NerioSwitchApi

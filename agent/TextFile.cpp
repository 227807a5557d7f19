#include "agent/TextFile.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <system_error>

#include "Belmo/Exceptions.h"

namespace Agent {

Belmo::String textOfFile(Belmo::String const& path) {
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    Belmo::String text;
    std::array<char, 65536> part;
    while (stream) {
        stream.read(part.data(), part.size());
        text.append(part.data(), static_cast<std::size_t>(stream.gcount()));
    }
    if (!stream.is_open() || stream.bad()) {
        throw Belmo::ResourceException(std::generic_category().message(errno));
    }
    return text;
}

}  // namespace Agent

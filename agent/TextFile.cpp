#include "agent/TextFile.h"

#include <array>
#include <cerrno>
#include <fmt/format.h>
#include <memory>
#include <system_error>
#include <unistd.h>
#include <zlib.h>

#include "Belmo/Exceptions.h"

namespace Agent {

namespace {

[[noreturn]] void refuse(Belmo::String const& reason) {
    throw Belmo::ResourceException(reason);
}

Belmo::String reasonOf(gzFile file) {
    int code = Z_OK;
    Belmo::String const text = gzerror(file, &code);
    return code == Z_ERRNO || text.empty() ? std::generic_category().message(errno) : text;
}

}  // namespace

Belmo::String textOfFile(Belmo::String const& path) {
    errno = 0;
    // Reads compressed files, and all others as they are.
    std::unique_ptr<gzFile_s, int (*)(gzFile)> const file(
        path == "-" ? gzdopen(::dup(STDIN_FILENO), "rb") : gzopen(path.c_str(), "rb"), gzclose);
    if (!file) refuse(std::generic_category().message(errno));
    Belmo::String text;
    std::array<char, 65536> part;
    for (;;) {
        int const length = gzread(file.get(), part.data(), part.size());
        if (length < 0) refuse(reasonOf(file.get()));
        if (length == 0) break;
        text.append(part.data(), static_cast<std::size_t>(length));
    }
    int code = Z_OK;
    gzerror(file.get(), &code);
    if (code != Z_OK && code != Z_STREAM_END) refuse(reasonOf(file.get()));
    return text;
}

Belmo::String oneLine(Belmo::String const& text) {
    Belmo::String line;
    for (char const character : text) {
        if (auto const code = static_cast<unsigned char>(character); code < 0x20 || code == 0x7F) {
            line += fmt::format("\\x{:02x}", code);
        } else {
            line += character;
        }
    }
    return line;
}

}  // namespace Agent

#include "NerioSwitchApi/RegisterMapFile.h"

#include <algorithm>
#include <charconv>
#include <fcntl.h>
#include <fmt/format.h>
#include <functional>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <utility>

#include "NerioSwitchApi/FileDescriptor.h"

namespace NerioSwitchApi {

namespace {

constexpr std::string_view blanks = " \t\r";

/** Takes the first word off a line; empty at its end. */
std::string_view takeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    auto const word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

/** A number, "0x1F" or "31". */
std::optional<U64> numberOf(std::string_view text) {
    bool const isHex = text.starts_with("0x") || text.starts_with("0X");
    if (isHex) text.remove_prefix(2);
    U64 number = 0;
    auto const [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, isHex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

Belmo::String contents(Belmo::String const& path) {
    auto const fail = [&](int error) {
        throw RegisterMapException(fmt::format("{}: {}", path, std::generic_category().message(error)));
    };
    FileDescriptor const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) fail(errno);
    Belmo::String text;
    for (;;) {
        char part[65536];
        auto const length = ::read(file.number(), part, sizeof(part));
        if (length == 0) return text;
        if (length > 0) {
            text.append(part, static_cast<std::size_t>(length));
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
}

}  // namespace

RegisterMapException::~RegisterMapException() = default;

RegisterMapFile RegisterMapFile::read(Belmo::String const& file) {
    return parse(contents(file), file);
}

RegisterMapFile RegisterMapFile::parse(std::string_view text, Belmo::String const& file) {
    RegisterMapFile map(file);
    for (std::size_t number = 1; !text.empty(); ++number) {
        auto const line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        map.add(line, number);
    }
    map.uniquePathsAndOffsets();
    return map;
}

void RegisterMapFile::add(std::string_view line, std::size_t number) {
    line = line.substr(0, line.find('#'));
    auto const path = takeWord(line);
    if (path.empty()) return;
    auto const offsetText = takeWord(line);
    if (offsetText.empty()) refuse(number, fmt::format("{} has no offset", path));
    if (auto const rest = takeWord(line); !rest.empty())
        refuse(number, fmt::format("\"{}\" behind path and offset", rest));
    auto const offset = numberOf(offsetText);
    if (!offset) refuse(number, fmt::format("\"{}\" is not an offset", offsetText));
    if (*offset % 4 != 0) refuse(number, fmt::format("offset {:#x} is not a multiple of 4", *offset));
    if (*offset > maxOffset) refuse(number, fmt::format("offset {:#x} is above {:#x}", *offset, maxOffset));
    registers_.push_back({Belmo::String(path), *offset, number});
}

void RegisterMapFile::uniquePathsAndOffsets() {
    // Stable, so that of two registers at one place the later line is the one at fault.
    std::ranges::stable_sort(registers_, {}, &Register::path);
    auto const path = std::ranges::adjacent_find(registers_, {}, &Register::path);
    if (path != registers_.end()) {
        refuse(path[1].line, fmt::format("{} is there already, in line {}", path[1].path, path->line));
    }
    std::ranges::sort(registers_, [](auto const& one, auto const& other) {
        return std::pair(one.offset, one.line) < std::pair(other.offset, other.line);
    });
    auto const place = std::ranges::adjacent_find(registers_, {}, &Register::offset);
    if (place != registers_.end()) {
        refuse(place[1].line, fmt::format("offset {:#x} is that of {} already, in line {}", place->offset,
                                          place->path, place->line));
    }
}

void RegisterMapFile::fits(U64 size) const {
    auto const beyond =
        std::ranges::find_if(registers_, [&](auto const& it) { return it.offset + 4 > size; });
    if (beyond == registers_.end()) return;
    refuse(beyond->line,
           fmt::format("offset {:#x} is beyond the {} bytes that are mapped", beyond->offset, size));
}

void RegisterMapFile::refuse(std::size_t line, Belmo::String const& text) const {
    throw RegisterMapException(fmt::format("{}: line {}: {}", file_, line, text));
}

}  // namespace NerioSwitchApi

#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "Belmo/Exceptions.h"
#include "Belmo/Export.h"
#include "Belmo/Types.h"

namespace NerioSwitchApi {

/** A register map that cannot be taken: "FILE: line 3: TEXT", or "FILE: TEXT" for one that cannot be read. */
class BELMO_EXPORT RegisterMapException : public Belmo::ResourceException {
public:
    using ResourceException::ResourceException;
    ~RegisterMapException() override;
    char const* typeName() const noexcept override { return "RegisterMapException"; }
};

/**
 * Where the registers of a chip stand in its address space, as a text:
 *
 *     # a register a line: its path and its offset in bytes, hexadecimal or decimal
 *     egress/port[0]/vlan_cfg   0x0000
 *     egress/port[0]/vlan_tci   4
 *
 * What follows a # is a comment. Registers are words of 32 bits: offsets are multiples of 4, and no two
 * registers share one. Every line that is at fault throws `RegisterMapException`.
 */
class BELMO_EXPORT RegisterMapFile {
public:
    /** A register and its place. */
    struct Register {
        Belmo::String path;
        /** In bytes from where the map begins. */
        U64 offset = 0;
        /** Its line in the file, from 1. */
        std::size_t line = 0;

        friend bool operator==(Register const&, Register const&) = default;
    };

    /** The register furthest behind that a map may have, for handles count words in 32 bits. */
    static constexpr U64 maxOffset = (U64{0xFFFFFFFF} - 1) * 4;

    /** Reads a file. */
    static RegisterMapFile read(Belmo::String const& file);
    /** The same of a text; `file` is what errors name. */
    static RegisterMapFile parse(std::string_view text, Belmo::String const& file);

    Belmo::String const& file() const { return file_; }
    /** All registers, by rising offset. */
    std::vector<Register> const& registers() const { return registers_; }
    /** How many bytes the registers reach over: up to behind the last one. */
    U64 size() const { return registers_.empty() ? 0 : registers_.back().offset + 4; }
    /** Throws `RegisterMapException` if a register stands beyond that many bytes. */
    void fits(U64 size) const;

private:
    explicit RegisterMapFile(Belmo::String file) : file_(std::move(file)) {}
    void add(std::string_view line, std::size_t number);
    void uniquePathsAndOffsets();
    [[noreturn]] void refuse(std::size_t line, Belmo::String const& text) const;

    Belmo::String file_;
    std::vector<Register> registers_;
};

}  // namespace NerioSwitchApi

#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "NerioSwitchApi/MappedFile.h"

namespace NerioSwitchApi {

/** A kind of file: how it is known, and how errors speak of it. */
struct FileFormat {
    /** Eight characters at the head of each file of the kind. */
    std::string_view magic;
    /** Rises with every change of what lies in the file. */
    U32 version;
    /** As in "is not a shadow file". */
    std::string_view name;
    /** What it is full of, in the plural, as in "has other rows". */
    std::string_view holds;
};

/**
 * A mapped file whose head says what it is: magic, byte order, version, and a text that describes the
 * contents, such as "0 to 24575 of \"lag\"", all under a checksum. The contents stand behind the head,
 * aligned to a cache line; looking after them is the owner's matter.
 *
 * Failures are `Belmo::ResourceException` with the path and what is wrong with it.
 */
class BELMO_EXPORT CheckedFile {
public:
    /**
     * Makes a file, whose contents are zeros unless `fill` sets them. A file of the same kind that stands
     * there, also a damaged or newer one, goes first, so that nobody takes it for the new one if making
     * that fails. A file of another kind is refused and left alone.
     */
    static CheckedFile create(FileFormat const& format, Belmo::String const& path,
                              Belmo::String const& description, std::size_t contentSize,
                              MappedFile::Fill const& fill = {});

    /** Maps a file that has to be of that kind, version, description and size; a file at fault stays as is.
     */
    static CheckedFile open(FileFormat const& format, Belmo::String const& path,
                            Belmo::String const& description, std::size_t contentSize);

    std::span<std::byte> contents() const { return file_.bytes().subspan(headSize_); }

private:
    CheckedFile(MappedFile file, std::size_t headSize);

    MappedFile file_;
    std::size_t headSize_;
};

}  // namespace NerioSwitchApi

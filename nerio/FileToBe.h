#pragma once

#include <string>
#include <string_view>

namespace Nerio {

/**
 * Writes a file as a whole or not at all: readers find the old one or the new one. The file beside it that
 * becomes it is made at once, so that a place where none can be is found before anything else is done. Both
 * calls throw `Belmo::ResourceException` with path and reason.
 */
class FileToBe {
public:
    explicit FileToBe(std::string path);
    ~FileToBe();
    FileToBe(FileToBe const&) = delete;
    FileToBe& operator=(FileToBe const&) = delete;

    void textIs(std::string_view text);

private:
    [[noreturn]] void fail(int error) const;

    std::string path_;
    std::string temporary_;
    int descriptor_ = -1;
};

}  // namespace Nerio

#pragma once

#include <string>
#include <string_view>

/* HTML pages that need nothing but themselves. */
namespace Nerio {

/** A text with what HTML and SVG would take for markup replaced. */
std::string escaped(std::string_view text);

/** A whole page: its style follows the reader's choice of light or dark, and fits a narrow screen. */
std::string page(std::string_view title, std::string_view body);

/** The colours that pages and pictures share, as a CSS text; they follow the reader's choice as well. */
std::string_view colourStyle();

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

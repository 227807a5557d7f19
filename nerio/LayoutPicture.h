#pragma once

#include <string>
#include <vector>

#include "NerioSwitchApi/RowLayout.h"

/* A row as a picture with named fields: words as strips of 32 bits, the highest bit on the left. */
namespace Nerio {

/** What stands beside each word, such as the register that it goes to. */
using WordNotes = std::vector<std::string>;

/** In text, a letter for each field: strips, and what the letters stand for. */
std::string textPicture(NerioSwitchApi::RowLayout const& layout, WordNotes const& notes);

/** An SVG element; in a page it takes the colours of the page, as a file it brings its own. */
struct SvgPicture {
    std::string content;
    unsigned width = 0;
    unsigned height = 0;
};
SvgPicture svgPicture(NerioSwitchApi::RowLayout const& layout, WordNotes const& notes);
/** The picture as an element of a page. */
std::string inPage(SvgPicture const& picture, std::string const& label);

/** The bits of a field in short: "w0[11:0]", "w1[28] to w2[3]". */
std::string shortBits(NerioSwitchApi::RowField const& field);

}  // namespace Nerio

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

}  // namespace Nerio

#include "nerio/LayoutPicture.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <string_view>

#include "nerio/Page.h"

namespace Nerio {

using NerioSwitchApi::RowField;
using NerioSwitchApi::RowLayout;

namespace {

constexpr U32 bitsOfWord = 32;
constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

char letterOf(std::size_t field) {
    return letters[field % letters.size()];
}

/** The part of a field that lies in a word, by bits of that word. */
struct Piece {
    std::size_t field;
    U32 low;
    U32 high;

    U32 width() const { return high - low + 1; }
};

std::vector<Piece> piecesIn(RowLayout const& layout, U32 word) {
    std::vector<Piece> pieces;
    for (std::size_t i = 0; i < layout.fields.size(); ++i) {
        auto const& field = layout.fields[i];
        U32 const first = std::max(field.first, bitsOfWord * word);
        U32 const end = std::min(field.end(), bitsOfWord * (word + 1));
        if (first < end) pieces.push_back({i, first - bitsOfWord * word, end - 1 - bitsOfWord * word});
    }
    return pieces;
}

std::string rangeText(U32 high, U32 low) {
    return high == low ? fmt::format("{}", low) : fmt::format("{}:{}", high, low);
}

std::string noteOf(WordNotes const& notes, U32 word) {
    return word < notes.size() ? notes[word] : std::string();
}

/* The measures of SVG pictures, in pixels. */
constexpr unsigned bitWidth = 23;
constexpr unsigned left = 8;
constexpr unsigned pictureWidth = 2 * left + bitsOfWord * bitWidth;
constexpr unsigned titleHeight = 20;
constexpr unsigned stripHeight = 28;
constexpr unsigned scaleHeight = 13;
constexpr unsigned lineHeight = 17;
constexpr unsigned gap = 12;
constexpr unsigned letterWidth = 7;

bool fitsIn(Piece const& piece, std::string const& name) {
    return name.size() * letterWidth + 6 <= std::size_t{piece.width()} * bitWidth;
}

std::string box(RowLayout const& layout, Piece const& piece, unsigned y) {
    auto const& field = layout.fields[piece.field];
    unsigned const x = left + (bitsOfWord - 1 - piece.high) * bitWidth;
    unsigned const width = piece.width() * bitWidth;
    auto const label =
        fitsIn(piece, field.name) ? escaped(field.name) : std::string(1, letterOf(piece.field));
    return fmt::format(
        "<g class=\"field\"><title>{0} {1}</title><rect x=\"{2}\" y=\"{3}\" width=\"{4}\" height=\"{5}\" "
        "style=\"fill:var(--f{6});stroke:var(--line)\"/>"
        "<text x=\"{7}\" y=\"{8}\" text-anchor=\"middle\" style=\"fill:var(--ink)\">{9}</text></g>\n",
        escaped(field.name), shortBits(field), x, y, width, stripHeight, piece.field % 6, x + width / 2,
        y + stripHeight / 2 + 5, label);
}

/** Places texts side by side below a strip, in as many lines as they need; how many these are. */
unsigned legend(std::vector<std::string> const& entries, unsigned y, std::string& content) {
    unsigned x = left;
    unsigned lines = entries.empty() ? 0 : 1;
    for (auto const& entry : entries) {
        auto const width = static_cast<unsigned>((entry.size() + 2) * letterWidth);
        if (x != left && x + width > pictureWidth) {
            x = left;
            ++lines;
        }
        content += fmt::format("<text x=\"{}\" y=\"{}\" style=\"fill:var(--soft)\">{}</text>\n", x,
                               y + lineHeight * lines - 4, escaped(entry));
        x += width;
    }
    return lines;
}

std::string scale(std::vector<Piece> const& pieces, unsigned y) {
    std::array<bool, bitsOfWord> ends{};
    ends.front() = ends.back() = true;
    for (auto const& piece : pieces)
        ends[piece.low] = ends[piece.high] = true;
    std::string all;
    for (U32 bit = 0; bit < bitsOfWord; ++bit) {
        if (!ends[bit]) continue;
        all += fmt::format(
            "<text x=\"{}\" y=\"{}\" text-anchor=\"middle\" style=\"fill:var(--soft);font-size:9px\">{}"
            "</text>\n",
            left + (bitsOfWord - 1 - bit) * bitWidth + bitWidth / 2, y + scaleHeight - 3, bit);
    }
    return all;
}

}  // namespace

std::string shortBits(RowField const& field) {
    U32 const last = field.end() - 1;
    U32 const firstWord = field.first / bitsOfWord;
    U32 const lastWord = last / bitsOfWord;
    if (firstWord == lastWord)
        return fmt::format("w{}[{}]", firstWord, rangeText(last % bitsOfWord, field.first % bitsOfWord));
    return fmt::format("w{}[{}] to w{}[{}]", firstWord, field.first % bitsOfWord, lastWord,
                       last % bitsOfWord);
}

std::string textPicture(RowLayout const& layout, WordNotes const& notes) {
    std::string all;
    for (U32 word = 0; word < layout.words; ++word) {
        auto const pieces = piecesIn(layout, word);
        std::string strip(bitsOfWord, '.');
        for (auto const& piece : pieces)
            strip.replace(bitsOfWord - 1 - piece.high, piece.width(), piece.width(), letterOf(piece.field));
        for (std::size_t byte = 3; byte > 0; --byte)
            strip.insert(8 * byte, 1, ' ');
        auto const note = noteOf(notes, word);
        all += fmt::format("  word {}  {}{}{}\n", word, strip, note.empty() ? "" : "  ", note);
        for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece) {
            all += fmt::format("          {}  {:<6} {}\n", letterOf(piece->field),
                               rangeText(piece->high, piece->low), layout.fields[piece->field].name);
        }
    }
    return all;
}

SvgPicture svgPicture(RowLayout const& layout, WordNotes const& notes) {
    SvgPicture picture;
    picture.width = pictureWidth;
    unsigned y = 0;
    for (U32 word = 0; word < layout.words; ++word) {
        auto const pieces = piecesIn(layout, word);
        auto const note = noteOf(notes, word);
        picture.content += fmt::format(
            "<text x=\"{}\" y=\"{}\" style=\"fill:var(--ink);font-weight:600\">word {}"
            "<tspan dx=\"10\" style=\"fill:var(--soft);font-weight:400\">{}</tspan></text>\n",
            left, y + titleHeight - 6, word, escaped(note));
        y += titleHeight;
        picture.content += fmt::format(
            "<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" style=\"fill:var(--panel);"
            "stroke:var(--line)\"/>\n",
            left, y, bitsOfWord * bitWidth, stripHeight);
        std::vector<std::string> entries;
        for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece) {
            picture.content += box(layout, *piece, y);
            auto const& name = layout.fields[piece->field].name;
            if (!fitsIn(*piece, name))
                entries.push_back(fmt::format("{} = {}", letterOf(piece->field), name));
        }
        y += stripHeight;
        picture.content += scale(pieces, y);
        y += scaleHeight;
        y += lineHeight * legend(entries, y, picture.content) + gap;
    }
    picture.height = y;
    return picture;
}

std::string inPage(SvgPicture const& picture, std::string const& label) {
    return fmt::format(
        "<svg class=\"row\" role=\"img\" aria-label=\"{0}\" width=\"{1}\" height=\"{2}\" viewBox=\"0 0 {1} "
        "{2}\" "
        "style=\"font:12px ui-monospace,monospace\">\n{3}</svg>\n",
        escaped(label), picture.width, picture.height, picture.content);
}

}  // namespace Nerio

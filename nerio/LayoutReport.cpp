#include "nerio/LayoutReport.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>
#include <utility>

#include "nerio/LayoutPicture.h"
#include "nerio/Page.h"

namespace Nerio {

using Agent::AlikeTables;
using Agent::Json;
using Agent::TableVersion;
using NerioSwitchApi::RowLayout;

namespace {

/** Text lines are no longer than this, if a column fits at all. */
constexpr std::size_t textWidth = 118;

/** "0 to 3", "0, 2 and 5" */
std::string numbersText(std::vector<U64> const& numbers) {
    bool const isRun = numbers.size() > 2 && numbers.back() - numbers.front() + 1 == numbers.size();
    if (isRun) return fmt::format("{} to {}", numbers.front(), numbers.back());
    std::string all = std::to_string(numbers.front());
    for (std::size_t i = 1; i < numbers.size(); ++i)
        all += fmt::format("{}{}", i + 1 == numbers.size() ? " and " : ", ", numbers[i]);
    return all;
}

/** The generation that a preset "apiN" stands for; 0 for any other. */
unsigned generationOf(std::string_view preset) {
    if (!preset.starts_with("api")) return 0;
    unsigned number = 0;
    for (char const c : preset.substr(3))
        number = number * 10 + static_cast<unsigned>(c - '0');
    return number;
}

/** What a form is called among those of its group; empty for the only one. */
std::string formText(RowLayout const& layout) {
    auto text = layout.name;
    bool const ofAllRows = layout.firstRow == 0 && layout.lastRow == RowLayout().lastRow;
    if (!ofAllRows) {
        text += layout.firstRow == layout.lastRow
                    ? fmt::format(" (row {})", layout.firstRow)
                    : fmt::format(" (rows {} to {})", layout.firstRow, layout.lastRow);
    }
    return text;
}

template <class Visit>
void forEachLayout(TableVersion const& version, Visit const& visit) {
    for (std::size_t group = 0; group < version.groups.size(); ++group) {
        for (auto const& layout : version.groups[group].layouts())
            visit(group, layout);
    }
}

FieldMatrix& matrixOf(std::vector<FieldMatrix>& all, std::vector<std::pair<std::size_t, std::string>>& forms,
                      std::pair<std::size_t, std::string> const& form) {
    auto const found = std::ranges::find(forms, form);
    if (found != forms.end()) return all[static_cast<std::size_t>(found - forms.begin())];
    forms.push_back(form);
    return all.emplace_back();
}

/** The line of a field; a new one stands behind that of the field before it. */
std::vector<std::string>& lineOf(FieldMatrix& matrix, std::string const& field, std::string const& before) {
    auto const isOf = [](std::string const& name) {
        return [&name](std::vector<std::string> const& line) { return line.front() == name; };
    };
    auto const found = std::ranges::find_if(matrix.lines, isOf(field));
    if (found != matrix.lines.end()) return *found;
    auto const previous = std::ranges::find_if(matrix.lines, isOf(before));
    auto const at = previous == matrix.lines.end() ? matrix.lines.begin() : previous + 1;
    std::vector<std::string> line(matrix.heads.size(), "-");
    line.front() = field;
    return *matrix.lines.insert(at, std::move(line));
}

std::string matrixText(FieldMatrix const& matrix) {
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < matrix.heads.size(); ++column) {
        auto width = matrix.heads[column].size();
        for (auto const& line : matrix.lines)
            width = std::max(width, line[column].size());
        widths.push_back(width);
    }
    std::string all;
    for (std::size_t first = 1; first < widths.size();) {
        std::size_t end = first;
        std::size_t width = 2 + widths.front();
        while (end < widths.size() && (end == first || width + 2 + widths[end] <= textWidth))
            width += 2 + widths[end++];
        auto const addLine = [&](std::vector<std::string> const& line) {
            auto text = fmt::format("  {:<{}}", line.front(), widths.front());
            for (std::size_t column = first; column < end; ++column)
                text += fmt::format("  {:<{}}", line[column], widths[column]);
            text.erase(text.find_last_not_of(' ') + 1);
            all += text + "\n";
        };
        addLine(matrix.heads);
        for (auto const& line : matrix.lines)
            addLine(line);
        first = end;
        if (first < widths.size()) all += "\n";
    }
    return all;
}

std::string picturesText(TableVersion const& version) {
    std::string all;
    for (auto const& group : version.groups) {
        all += tablesText(group) + "\n";
        for (auto const& layout : group.layouts()) {
            if (auto const form = formText(layout); !form.empty()) all += fmt::format("\n  form {}\n", form);
            all += textPicture(layout, wordNotes(group, layout));
        }
    }
    return all;
}

Json toJson(RowLayout const& layout) {
    Json json{{"name", layout.name}, {"words", layout.words}, {"fields", Json::array()}};
    if (layout.lastRow != RowLayout().lastRow) {
        json["firstRow"] = layout.firstRow;
        json["lastRow"] = layout.lastRow;
    }
    for (auto const& field : layout.fields)
        json["fields"].push_back({{"name", field.name}, {"first", field.first}, {"width", field.width}});
    return json;
}

Json toJson(TableVersion const& version) {
    Json json{{"profiles", version.profiles}, {"hwTables", Json::array()}};
    for (auto const& group : version.groups) {
        for (auto const& table : group.tables) {
            Json one{{"id", table.id},
                     {"firstRow", table.firstRow},
                     {"lastRow", table.lastRow},
                     {"registers", table.registers},
                     {"rowsShareRegisters", table.rowsShareRegisters},
                     {"layouts", Json::array()}};
            for (auto const& layout : table.layouts)
                one["layouts"].push_back(toJson(layout));
            json["hwTables"].push_back(std::move(one));
        }
    }
    return json;
}

std::string pictures(TableVersion const& version, std::string const& name) {
    std::string all;
    for (auto const& group : version.groups) {
        all += fmt::format("<p class=\"soft\">{}</p>\n", escaped(tablesText(group)));
        for (auto const& layout : group.layouts()) {
            auto const form = formText(layout);
            if (!form.empty()) all += fmt::format("<h4>{}</h4>\n", escaped(form));
            all += fmt::format("<div class=\"wide\">{}</div>\n",
                               inPage(svgPicture(layout, wordNotes(group, layout)),
                                      fmt::format("row of {} {}", name, form)));
        }
    }
    return all;
}

}  // namespace

FamilyLayouts layoutsOf(Agent::Family const& family, std::vector<Agent::NamedProfile> const& profiles) {
    std::string const name(family.name);
    return {name, &family, Agent::tableVersions(family, profiles)};
}

std::string presetsText(std::vector<Belmo::String> const& names) {
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < names.size();) {
        std::size_t end = i + 1;
        auto const first = generationOf(names[i]);
        while (end < names.size() && first != 0 && generationOf(names[end]) == first + (end - i))
            ++end;
        if (end - i > 2) {
            parts.push_back(fmt::format("{} to {}", names[i], names[end - 1]));
        } else {
            parts.insert(parts.end(), names.begin() + static_cast<std::ptrdiff_t>(i),
                         names.begin() + static_cast<std::ptrdiff_t>(end));
        }
        i = end;
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string tablesText(AlikeTables const& group) {
    std::vector<U64> ids;
    bool sameRows = true;
    auto const& first = group.tables.front();
    for (auto const& table : group.tables) {
        ids.push_back(table.id);
        sameRows = sameRows && table.firstRow == first.firstRow && table.lastRow == first.lastRow;
    }
    return fmt::format("{}hardware table{} {}, rows {} to {}{}",
                       first.label.empty() ? "" : first.label + ": ", ids.size() > 1 ? "s" : "",
                       numbersText(ids), first.firstRow, group.tables.back().lastRow,
                       ids.size() > 1 ? (sameRows ? " each" : " together") : "");
}

WordNotes wordNotes(AlikeTables const& group, RowLayout const& layout) {
    auto const& table = group.tables.front();
    WordNotes notes;
    for (std::size_t word = 0; word < layout.words; ++word) {
        bool const isWritten = word < table.registers.size() && !table.registers[word].empty();
        notes.push_back(isWritten ? table.registers[word] : "in the shadow only");
    }
    return notes;
}

std::vector<FieldMatrix> fieldMatrices(std::vector<TableVersion> const& versions) {
    std::vector<FieldMatrix> all;
    std::vector<std::pair<std::size_t, std::string>> forms;
    for (std::size_t number = 0; number < versions.size(); ++number) {
        auto const& version = versions[number];
        forEachLayout(version, [&](std::size_t group, RowLayout const& layout) {
            auto& matrix = matrixOf(all, forms, {group, layout.name});
            if (matrix.heads.empty()) {
                matrix.heads.emplace_back("field");
                for (auto const& each : versions)
                    matrix.heads.push_back(presetsText(each.profiles));
                matrix.title = formText(layout);
                if (version.groups.size() > 1) {
                    auto const tables = tablesText(version.groups[group]);
                    matrix.title += (matrix.title.empty() ? "" : ", ") + tables;
                }
            }
            std::string before;
            for (auto const& field : layout.fields) {
                lineOf(matrix, field.name, before)[number + 1] = shortBits(field);
                before = field.name;
            }
        });
    }
    return all;
}

std::string layoutText(FamilyLayouts const& layouts) {
    auto all = fmt::format("{}: {}\n", layouts.name, layouts.family->summary);
    if (layouts.versions.empty()) return all + "no hardware tables\n";
    if (layouts.versions.size() == 1) {
        auto const& version = layouts.versions.front();
        return fmt::format("{}on {}: {}", all, presetsText(version.profiles), picturesText(version));
    }
    for (auto const& matrix : fieldMatrices(layouts.versions))
        all += fmt::format("\n{}{}", matrix.title.empty() ? "" : matrix.title + "\n", matrixText(matrix));
    return all;
}

Json layoutJson(FamilyLayouts const& layouts) {
    Json json{{"table", layouts.name},
              {"family", layouts.family->name},
              {"summary", layouts.family->summary},
              {"versions", Json::array()}};
    for (auto const& version : layouts.versions)
        json["versions"].push_back(toJson(version));
    return json;
}

std::string layoutSvg(std::vector<FamilyLayouts> const& all) {
    constexpr unsigned headHeight = 28;
    constexpr unsigned lineHeight = 20;
    std::string content;
    unsigned width = 0;
    unsigned y = 0;
    auto const addLine = [&](std::string const& text, char const* style, unsigned height) {
        y += height;
        content +=
            fmt::format("<text x=\"8\" y=\"{}\" style=\"{}\">{}</text>\n", y - 6, style, escaped(text));
    };
    for (auto const& layouts : all) {
        addLine(layouts.name, "fill:var(--ink);font-weight:700;font-size:16px", headHeight);
        for (auto const& version : layouts.versions) {
            addLine(presetsText(version.profiles), "fill:var(--accent)", lineHeight);
            for (auto const& group : version.groups) {
                for (auto const& layout : group.layouts()) {
                    auto const form = formText(layout);
                    addLine(tablesText(group) + (form.empty() ? "" : ", form " + form), "fill:var(--soft)",
                            lineHeight);
                    auto const picture = svgPicture(layout, wordNotes(group, layout));
                    content += fmt::format("<g transform=\"translate(0,{})\">\n{}</g>\n", y, picture.content);
                    y += picture.height;
                    width = std::max(width, picture.width);
                }
            }
        }
    }
    return fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" "
        "style=\"font:12px ui-monospace,monospace\">\n<style>{2}</style>\n"
        "<rect width=\"100%\" height=\"100%\" style=\"fill:var(--paper)\"/>\n{3}</svg>\n",
        std::max(width, 400u), y, colourStyle(), content);
}

std::string layoutSection(FamilyLayouts const& layouts) {
    auto all = fmt::format("<section id=\"{0}\">\n<h2>{0}</h2>\n<p>{1}</p>\n", escaped(layouts.name),
                           escaped(layouts.family->summary));
    if (layouts.versions.empty()) return all + "<p class=\"soft\">no hardware tables</p>\n</section>\n";
    if (layouts.versions.size() > 1) all += "<div class=\"versions\">\n";
    for (auto const& version : layouts.versions) {
        all += fmt::format("<div class=\"card\"><h3>{}</h3>\n{}</div>\n",
                           escaped(presetsText(version.profiles)), pictures(version, layouts.name));
    }
    return all + (layouts.versions.size() > 1 ? "</div>\n" : "") + "</section>\n";
}

std::string layoutPictures(FamilyLayouts const& layouts) {
    std::string all;
    for (auto const& version : layouts.versions)
        all += pictures(version, layouts.name);
    return all;
}

std::string layoutPage(std::vector<FamilyLayouts> const& all) {
    std::string body = "<h1>Row layouts</h1>\n<p>Words of 32 bits, the highest bit on the left.</p>\n";
    if (all.size() > 1) {
        body += "<nav>";
        for (auto const& layouts : all)
            body += fmt::format("<a href=\"#{0}\">{0}</a>\n", escaped(layouts.name));
        body += "</nav>\n";
    }
    for (auto const& layouts : all)
        body += layoutSection(layouts);
    return page(all.size() == 1 ? all.front().name + ": row layout" : "Row layouts", body);
}

}  // namespace Nerio

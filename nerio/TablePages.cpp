#include "nerio/TablePages.h"

#include <fmt/format.h>

namespace Nerio {

using Agent::AlikeTables;

namespace {

std::string const notice =
    "\nMade from the code by `nerio layout --docs`; a test tells when it has to be made again.\n";

/** A text in a cell of a table. */
std::string cell(std::string_view text) {
    std::string all;
    for (char const c : text) {
        if (c == '|') all += '\\';
        all += c;
    }
    return all;
}

std::string code(std::string_view text) {
    return fmt::format("`{}`", text);
}

std::string line(std::vector<std::string> const& cells) {
    return fmt::format("| {} |\n", fmt::join(cells, " | "));
}

std::string heads(std::vector<std::string> const& cells) {
    std::string rule = "|";
    for (std::size_t i = 0; i < cells.size(); ++i)
        rule += "---|";
    return line(cells) + rule + "\n";
}

std::string attributesTable(char const* title, Agent::ValueAttributes const& attributes) {
    if (attributes.size() == 1 && attributes.front().name.empty()) {
        auto const& value = attributes.front();
        return fmt::format("\n## {}\n\nA single value: {}; {} by default.\n", title, value.type,
                           value.initial);
    }
    auto all = fmt::format("\n## {}\n\n{}", title, heads({"attribute", "values", "default"}));
    for (auto const& attribute : attributes)
        all += line({code(attribute.name), cell(attribute.type), code(cell(attribute.initial))});
    return all;
}

std::string factoryText(Agent::Family const& family) {
    std::string numbers;
    std::string ranges;
    for (auto const& number : family.numbers) {
        numbers += fmt::format(", {}", number.name);
        ranges += fmt::format("{}`{}` is 0 to {}", ranges.empty() ? ": " : ", ", number.name, number.max);
    }
    // One family names its table itself.
    auto const arguments = family.name == "stormControl" ? std::string() : fmt::format("name{}", numbers);
    return fmt::format("\nFactory: `{}TableFactory({})`{}.\n", family.name, arguments, ranges);
}

std::string registersText(AlikeTables const& group) {
    auto const& table = group.tables.front();
    std::string all;
    for (auto const& path : table.registers) {
        if (!path.empty()) all += fmt::format("{}`{}`", all.empty() ? "" : ", ", path);
    }
    return all + (table.rowsShareRegisters ? "" : " for the first row, and others for each further one");
}

std::string hwTables(std::vector<AlikeTables> const& groups) {
    std::string all = "\n## Hardware tables\n\nOn the preset `default`:\n\n";
    for (auto const& group : groups) {
        all += fmt::format("- {}; registers{} {}\n", tablesText(group),
                           group.tables.size() > 1 ? " of the first one" : "", registersText(group));
    }
    return all;
}

std::string rowLayouts(std::vector<Agent::TableVersion> const& versions) {
    std::string all =
        "\n## Row layout\n\n`w1[11:4]` are bits 11 to 4 of word 1. Words without a register stay in the "
        "shadow.\n";
    for (auto const& matrix : fieldMatrices(versions)) {
        if (!matrix.title.empty()) all += fmt::format("\n### {}\n", matrix.title);
        all += fmt::format("\n{}", heads(matrix.heads));
        for (auto const& each : matrix.lines)
            all += line(each);
    }
    return all;
}

std::string pageOf(FamilyLayouts const& layouts) {
    auto const& family = *layouts.family;
    auto const table = family.make(layouts.name, {});
    auto all = fmt::format("# {}\n\n{}\n{}", layouts.name, family.summary, factoryText(family));
    all += attributesTable("Key", table->keyAttributes());
    all += attributesTable("Result", table->resultAttributes());
    if (!layouts.versions.empty())
        all += hwTables(layouts.versions.front().groups) + rowLayouts(layouts.versions);
    return all + notice;
}

}  // namespace

std::map<std::string, std::string> tablePages(std::vector<FamilyLayouts> const& all) {
    std::map<std::string, std::string> pages;
    std::map<std::string, std::string> lines;
    for (auto const& layouts : all) {
        auto const file = layouts.name + ".md";
        pages[file] = pageOf(layouts);
        lines[layouts.name] =
            line({fmt::format("[{0}]({0}.md)", layouts.name), cell(layouts.family->summary)});
    }
    auto index = fmt::format("# Tables\n\n{}", heads({"family", "what its tables are"}));
    for (auto const& [name, text] : lines)
        index += text;
    pages["index.md"] = index + notice;
    return pages;
}

}  // namespace Nerio

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Sorn/Trace.h"

#include "agent/ImportText.h"
#include "agent/RowDecoder.h"
#include "agent/RowText.h"
#include "agent/SwitchEntries.h"
#include "agent/TableShapes.h"
#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/KeptSwitch.h"
#include "nerio/ProfileOption.h"

/* `nerio decode`: the words of a row, field by field, and the entry that they stand for. */
namespace Nerio {

namespace {

using Agent::HwTableShape;
using Agent::Json;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::RowField;
using NerioSwitchApi::RowLayout;

struct Options {
    std::string table;
    std::vector<std::string> words;
    /** Of the table's factory: "physTableIdx=2". */
    std::vector<std::string> numbers;
    std::string profile;
    std::string directory;
    std::optional<U32> hwTable;
    std::optional<U32> row;
    bool json = false;
};

/** The table that is meant, and the chip that it is a table of. */
struct Subject {
    Agent::TableSpec spec;
    Agent::NamedProfile profile;
};

/** "NAME=NUMBER" as what the family's factory takes. */
void numberIs(Agent::TableSpec& spec, std::string const& text) {
    auto const& known = Agent::family(spec.family)->numbers;
    auto const equals = text.find('=');
    auto const name = text.substr(0, equals);
    auto const number = std::ranges::find(known, name, &Agent::FamilyNumber::name);
    if (number == known.end()) {
        std::vector<std::string_view> names;
        names.reserve(known.size());
        for (auto const& each : known)
            names.push_back(each.name);
        throw BadInput(fmt::format("{}: {} takes {}", text, spec.family,
                                   names.empty() ? "no numbers" : fmt::format("{}", fmt::join(names, ", "))));
    }
    auto const value = equals == std::string::npos
                           ? std::nullopt
                           : Agent::numberFromText(text.substr(equals + 1), static_cast<U32>(number->max));
    if (!value) throw BadInput(fmt::format("{}: {} is a number up to {}", text, name, number->max));
    spec.numbers[name] = *value;
}

Subject ofFamily(Options const& options, Agent::NamedProfile profile) {
    auto const& name = options.table;
    if (Agent::family(name) == nullptr) throw BadInput(fmt::format("{}: unknown table", name));
    Agent::TableSpec spec{name, name, {}};
    for (auto const& number : options.numbers)
        numberIs(spec, number);
    return {std::move(spec), std::move(profile)};
}

Subject ofSwitch(Options const& options) {
    auto const kept = keptState(options.directory);
    if (!kept) throw BadInput(fmt::format("{}: no switch is kept there", options.directory));
    auto const& state = kept->wanted;
    Agent::NamedProfile profile{options.directory, state.profile};
    for (auto const& table : state.tables) {
        if (table.spec.name == options.table) return {table.spec, std::move(profile)};
    }
    for (auto const& table : Agent::tablesOf(state.switchState)) {
        if (table.spec.name == options.table) return {table.spec, std::move(profile)};
    }
    return ofFamily(options, std::move(profile));
}

Subject subjectOf(Options const& options) {
    if (!options.directory.empty()) return ofSwitch(options);
    return ofFamily(options, profileNamed(options.profile.empty() ? "default" : options.profile));
}

U32 wordOf(std::string const& text) {
    bool const isHex = text.starts_with("0x") || text.starts_with("0X");
    auto const* first = text.data() + (isHex ? 2 : 0);
    auto const* end = text.data() + text.size();
    U32 word = 0;
    auto const [rest, error] = std::from_chars(first, end, word, isHex ? 16 : 10);
    if (error != std::errc() || rest != end || first == end)
        throw BadInput(fmt::format("{}: not a word of 32 bits", text));
    return word;
}

HwTableShape shapeOf(Options const& options, Subject const& subject) {
    auto const& name = options.table;
    if (!subject.spec.numbers.empty() || !NerioSwitch::profilePreset(subject.profile.name)) {
        doneApart(fmt::format("{}: {}", subject.profile.name, name), [&] {
            Agent::hwTableShapes(subject.spec, subject.profile.profile);
            return std::string();
        });
    }
    auto shapes = Agent::hwTableShapes(subject.spec, subject.profile.profile);
    if (shapes.empty()) throw BadInput(fmt::format("{}: no hardware tables on this chip", name));
    U32 const id = options.hwTable.value_or(shapes.front().id);
    auto const found = std::ranges::find(shapes, id, &HwTableShape::id);
    if (found == shapes.end()) {
        throw BadInput(
            fmt::format("{}: no hardware table {}; the last one is {}", name, id, shapes.back().id));
    }
    if (options.row && (*options.row < found->firstRow || *options.row > found->lastRow)) {
        throw BadInput(fmt::format("{}: no row {}; rows are {} to {}", name, *options.row, found->firstRow,
                                   found->lastRow));
    }
    return std::move(*found);
}

/** All that is told of a row. */
struct Decoded {
    Subject const& subject;
    HwTableShape const& shape;
    std::vector<U32> words{};
    HwIndex row = 0;
    bool rowIsTold = false;
    RowLayout const* layout = nullptr;
    /** Of no field. */
    std::vector<U32> outside{};
    /** Empty where the row stands for none. */
    std::vector<Agent::DecodedEntry> entries{};
    /** Why the table cannot tell. */
    std::string untold{};
};

void findLayout(Options const& options, Decoded& decoded) {
    auto const& shape = decoded.shape;
    std::size_t longest = 0;
    for (auto const& layout : shape.layouts)
        longest = std::max<std::size_t>(longest, layout.words);
    if (decoded.words.size() > longest) {
        throw BadInput(
            fmt::format("{}: {} words, where a row has {}", options.table, decoded.words.size(), longest));
    }
    auto const told = options.row ? options.row : Agent::rowToldBy(shape, decoded.words);
    decoded.rowIsTold = told.has_value();
    decoded.row = told.value_or(shape.firstRow);
    decoded.layout = Agent::layoutOf(shape.layouts, decoded.words, decoded.row);
}

void findOutside(Decoded& decoded) {
    decoded.outside = decoded.words;
    if (decoded.layout == nullptr) return;
    for (auto const& field : decoded.layout->fields) {
        for (U32 bit = field.first; bit < field.end(); ++bit) {
            if (bit / 32 < decoded.outside.size()) decoded.outside[bit / 32] &= ~(U32{1} << bit % 32);
        }
    }
}

/** Words that no chip could hold may end the process that makes an entry of them. */
void findEntries(Options const& options, Decoded& decoded) {
    try {
        auto const text = doneApart(options.table, [&] {
            return Agent::toJson(Agent::entriesOfRow(decoded.subject.spec, decoded.subject.profile.profile,
                                                     decoded.shape.id, decoded.row, decoded.words))
                .dump();
        });
        decoded.entries = Agent::decodedEntriesFromJson(Json::parse(text));
    } catch (BadInput const& failure) {
        decoded.untold = failure.what();
    }
}

Json toJson(Decoded const& decoded) {
    Json json{{"family", decoded.subject.spec.family},
              {"profile", decoded.subject.profile.name},
              {"hwTable", decoded.shape.id},
              {"row", decoded.row},
              {"words", decoded.words},
              {"form", decoded.layout == nullptr ? Json() : Json(decoded.layout->name)},
              {"fields", Json::array()},
              {"bitsOfNoField", decoded.outside},
              {"entries", Agent::toJson(decoded.entries)}};
    if (!decoded.untold.empty()) json["untold"] = decoded.untold;
    if (decoded.layout == nullptr) return json;
    for (auto const& field : decoded.layout->fields) {
        json["fields"].push_back({{"name", field.name},
                                  {"first", field.first},
                                  {"width", field.width},
                                  {"value", Agent::valueIn(field, decoded.words)}});
    }
    return json;
}

void printFields(Decoded const& decoded) {
    std::size_t name = 5;
    std::size_t bits = 4;
    for (auto const& field : decoded.layout->fields) {
        name = std::max(name, field.name.size());
        bits = std::max(bits, Agent::bitsText(field.first, field.width).size());
    }
    fmt::print("  {:<{}}  {:<{}}  {:>18} {:>20}\n", "field", name, "bits", bits, "hexadecimal", "decimal");
    for (auto const& field : decoded.layout->fields) {
        auto const value = Agent::valueIn(field, decoded.words);
        fmt::print("  {:<{}}  {:<{}}  {:>#18x} {:>20}\n", field.name, name,
                   Agent::bitsText(field.first, field.width), bits, value, value);
    }
}

void printEntries(Decoded const& decoded) {
    if (!decoded.untold.empty()) {
        fmt::print("\nthe table refuses the row: {}\n", decoded.untold);
    } else if (decoded.entries.empty()) {
        fmt::print("\nno entry: the row is empty, or no row of the key's\n");
    }
    for (auto const& entry : decoded.entries) {
        fmt::print("\nkey     {}\nresult  {}\n", entry.key, entry.result);
        if (entry.isInconsistent) fmt::print("the key is marked as inconsistent\n");
    }
}

void print(Decoded const& decoded) {
    fmt::print("{}, hardware table {}, row {}{}", decoded.subject.spec.name, decoded.shape.id, decoded.row,
               decoded.rowIsTold ? "" : " (the words tell none)");
    if (decoded.layout == nullptr) {
        fmt::print(": no form that rows have\n");
    } else {
        fmt::print("{}{}\n", decoded.layout->name.empty() ? "" : ", form ", decoded.layout->name);
        printFields(decoded);
    }
    for (std::size_t word = 0; word < decoded.outside.size(); ++word) {
        if (decoded.outside[word] != 0)
            fmt::print("  bits of no field in word {}: {:#010x}\n", word, decoded.outside[word]);
    }
    printEntries(decoded);
}

int runDecode(Options const& options) {
    Sorn::traceSinkIs([](Sorn::TraceRecord const&) {});
    auto const subject = subjectOf(options);
    auto const shape = shapeOf(options, subject);
    Decoded decoded{subject, shape};
    for (auto const& text : options.words)
        decoded.words.push_back(wordOf(text));
    findLayout(options, decoded);
    findOutside(decoded);
    findEntries(options, decoded);
    if (options.json) {
        fmt::print("{}\n", toJson(decoded).dump(1));
    } else {
        print(decoded);
    }
    return done;
}

}  // namespace

void addDecode(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand("decode", "Tell the fields of a row's words, and the entry they are");
    command->add_option("TABLE", options->table, "A table family; with --switch, the name of a table")
        ->required();
    command->add_option("WORD", options->words, "The row's words from word 0 on, such as 0x1f; others are 0")
        ->required();
    auto* profile =
        command->add_option("--profile", options->profile,
                            "A preset, or a JSON file of a profile; the preset default if left out");
    command->add_option("--switch", options->directory, "The switch that is kept in this directory")
        ->excludes(profile);
    command
        ->add_option("--number", options->numbers,
                     "A number of the family's table, such as physTableIdx=2; 0 if left out")
        ->type_name("NAME=NUMBER")
        ->allow_extra_args(false)
        ->excludes("--switch");
    command->add_option("--hw-table", options->hwTable, "The hardware table, by its number in the table");
    command->add_option("--row", options->row,
                        "The row's number; what the control word says, or the first one, if left out");
    command->add_flag("--json", options->json, "Print JSON");
    command->callback(
        [options, &status] { status = guarded("decode", [&] { return runDecode(*options); }); });
}

}  // namespace Nerio

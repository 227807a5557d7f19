#include <algorithm>
#include <cstdio>
#include <deque>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "nerio/Commands.h"
#include "nerio/Guarded.h"
#include "nerio/Interrupt.h"
#include "nerio/LookText.h"

/*
 * `nerio watch`: looks at a kept switch again and again while others have it, and tells what changed: as a
 * screen on a terminal, as a line for each change elsewhere.
 */
namespace Nerio {

namespace {

using Agent::Json;
using Look = std::unique_ptr<SwitchLook>;

struct Options {
    std::string directory;
    double interval = 1;
    std::size_t count = 0;
    bool json = false;
};

/** What changed between two looks. */
struct Change {
    /** "added", "removed", "changed", "hit", "nearly full", "not nearly full". */
    std::string what;
    std::string table;
    /** None of a change of a whole table. */
    std::optional<EntryLook> before;
    std::optional<EntryLook> after;
    std::string text;
};

/** Entries by their keys. */
using Entries = std::map<std::string, EntryLook>;

Entries entriesOf(SwitchLook const& look, std::string const& table) {
    Entries entries;
    auto const number = look.find(table);
    if (!number) return entries;
    for (auto& entry : look.entries(*number))
        entries.emplace(entry.key.dump(), std::move(entry));
    return entries;
}

/** A table in a look, and its entries. */
struct Side {
    Side(SwitchLook const& look, std::string const& table) : entries(entriesOf(look, table)) {
        if (auto const number = look.find(table)) json = &look.json(*number);
    }
    /** "KEY = RESULT" of an entry of this side. */
    std::string text(EntryLook const& entry) const {
        return fmt::format("{} = {}", keyText(entry), resultText(entry));
    }
    std::string keyText(EntryLook const& entry) const { return json->keyText(entry.key, {}); }
    std::string resultText(EntryLook const& entry) const { return json->resultText(entry.result, {}); }

    Entries entries;
    /** Null without such a table. */
    Agent::JsonTable const* json = nullptr;
};

/** What became of a table's entries. */
void compareEntries(std::vector<Change>& all, std::string const& name, Side const& before,
                    Side const& after) {
    auto const add = [&](char const* what, std::optional<EntryLook> from, std::optional<EntryLook> to,
                         std::string text) {
        all.push_back({what, name, std::move(from), std::move(to), std::move(text)});
    };
    for (auto const& [key, entry] : before.entries) {
        if (!after.entries.contains(key))
            add("removed", entry, {}, fmt::format("- {}: {}", name, before.text(entry)));
    }
    for (auto const& [key, entry] : after.entries) {
        auto const old = before.entries.find(key);
        bool const isNew = old == before.entries.end();
        if (isNew) {
            add("added", {}, entry, fmt::format("+ {}: {}", name, after.text(entry)));
        } else if (old->second.result != entry.result) {
            add("changed", old->second, entry,
                fmt::format("~ {}: {}, was {}", name, after.text(entry), before.resultText(old->second)));
        }
        bool const wasHit = !isNew && old->second.hit.value_or(false);
        if (entry.hit.value_or(false) && !wasHit)
            add("hit", {}, entry, fmt::format("* {}: {} was hit", name, after.keyText(entry)));
    }
}

void compareFill(std::vector<Change>& all, TableLook const* before, TableLook const& after) {
    bool const was = before != nullptr && before->nearlyFull;
    if (was == after.nearlyFull) return;
    auto const* what = after.nearlyFull ? "nearly full" : "not nearly full";
    all.push_back(
        {what,
         after.spec.name,
         {},
         {},
         fmt::format("! {}: {}, {} of {} rows", after.spec.name, what, after.rowsInUse, after.rows)});
}

std::vector<Change> changesBetween(SwitchLook const& before, SwitchLook const& after) {
    std::vector<Change> all;
    auto const old = before.tables();
    auto const young = after.tables();
    for (auto const& gone : old) {
        auto const& name = gone.spec.name;
        if (!after.find(name)) compareEntries(all, name, {before, name}, {after, name});
    }
    for (auto const& table : young) {
        auto const& name = table.spec.name;
        compareEntries(all, name, {before, name}, {after, name});
        auto const was = before.find(name);
        compareFill(all, was ? &old[*was] : nullptr, table);
    }
    return all;
}

Json toJson(Change const& change) {
    Json json{{"change", change.what}, {"table", change.table}};
    if (!change.before && !change.after) return json;
    json["key"] = (change.after ? change.after : change.before)->key;
    if (change.before) json["before"] = change.before->result;
    if (change.after) json["after"] = change.after->result;
    return json;
}

/** A screen of its own on the terminal, which is as it was when this is gone. */
class Screen {
public:
    Screen() { fmt::print("\x1b[?1049h\x1b[?25l"); }
    ~Screen() {
        fmt::print("\x1b[?25h\x1b[?1049l");
        std::fflush(stdout);
    }
    Screen(Screen const&) = delete;
    Screen& operator=(Screen const&) = delete;

    /** Shows these lines, as far as there is room; keeps room for `below` and shows its last ones. */
    void show(std::vector<std::string> const& lines, std::deque<std::string> const& below) const {
        winsize size{};
        if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0) size = {24, 80, 0, 0};
        std::size_t const height = size.ws_row;
        std::size_t const width = size.ws_col;
        auto const room = height > 8 ? height - std::min<std::size_t>(below.size() + 2, height / 3) : height;
        std::string text = "\x1b[H";
        std::size_t row = 0;
        auto const put = [&](std::string const& line) {
            if (row < height) text += (row == 0 ? "" : "\r\n") + line.substr(0, width) + "\x1b[K";
            ++row;
        };
        for (std::size_t i = 0; i < lines.size() && i < room; ++i)
            put(lines[i]);
        put("");
        auto const shown = std::min(below.size(), height > row ? height - row : 0);
        for (auto line = below.end() - static_cast<std::ptrdiff_t>(shown); line != below.end(); ++line)
            put(*line);
        fmt::print("{}\x1b[J", text);
        std::fflush(stdout);
    }
};

/** A look at a switch that may just be changing: a copy made halfway may not come up. */
Look lookAt(std::string const& directory) {
    constexpr int attempts = 3;
    for (int attempt = 1;; ++attempt) {
        try {
            return std::make_unique<SwitchLook>(directory);
        } catch (Belmo::Exception const&) {
            if (attempt == attempts) throw;
        }
    }
}

/** What is told of a watch. */
class Teller {
public:
    explicit Teller(Options const& options) : options_(options) {
        if (::isatty(STDOUT_FILENO) != 0 && !options.json) screen_.emplace();
    }

    void begin(SwitchLook const& look) {
        auto const tables = look.tables();
        std::size_t entries = 0;
        for (auto const& table : tables)
            entries += table.entries;
        if (screen_) {
            redraw(look);
        } else if (options_.json) {
            print(Json{{"tables", tables.size()}, {"entries", entries}}.dump());
        } else {
            print(fmt::format("{} tables with {} entries", tables.size(), entries));
        }
    }
    void tell(SwitchLook const& look, std::vector<Change> const& changes) {
        for (auto const& change : changes) {
            if (screen_) {
                recent_.push_back(change.text);
                if (recent_.size() > maxRecent) recent_.pop_front();
            } else {
                print(options_.json ? toJson(change).dump() : change.text);
            }
        }
        if (screen_) redraw(look);
    }
    /** Nobody reads it any more. */
    bool isClosed() const { return std::ferror(stdout) != 0; }

private:
    static constexpr std::size_t maxRecent = 200;

    void print(std::string const& line) {
        if (std::fwrite((line + "\n").data(), 1, line.size() + 1, stdout) == 0) return;
        std::fflush(stdout);
    }
    void redraw(SwitchLook const& look) {
        std::vector<std::string> lines{
            fmt::format("{}, every {} s; Ctrl-C ends it", options_.directory, options_.interval), ""};
        auto const text = tablesText(look.tables());
        for (std::size_t begin = 0; begin < text.size();) {
            auto const end = text.find('\n', begin);
            lines.push_back(text.substr(begin, end - begin));
            begin = end + 1;
        }
        screen_->show(lines, recent_);
    }

    Options const& options_;
    std::optional<Screen> screen_;
    std::deque<std::string> recent_;
};

int runWatch(Options const& options) {
    InterruptWait const interrupt;
    auto last = lookAt(options.directory);
    Teller teller(options);
    teller.begin(*last);
    for (std::size_t looks = 1; options.count == 0 || looks < options.count; ++looks) {
        if (interrupt.came(options.interval) || teller.isClosed()) break;
        auto next = lookAt(options.directory);
        teller.tell(*next, changesBetween(*last, *next));
        last = std::move(next);
    }
    return done;
}

}  // namespace

void addWatch(CLI::App& app, int& status) {
    auto const options = std::make_shared<Options>();
    auto* command = app.add_subcommand(
        "watch", "Tell what changes in a kept switch: entries, hits, and tables that are nearly full");
    command->add_option("--switch", options->directory, "The directory of a kept switch")->required();
    command->add_option("--interval", options->interval, "Seconds from one look to the next; 1 if left out")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 86400.0));
    command->add_option("--count", options->count, "End after this many looks; 0 for none")->type_name("N");
    command->add_flag("--json", options->json, "Tell each change as a line of JSON");
    command->callback([options, &status] { status = guarded("watch", [&] { return runWatch(*options); }); });
}

}  // namespace Nerio

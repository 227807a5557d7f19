#include "nerio/RunPage.h"

#include <algorithm>
#include <fmt/format.h>

#include "nerio/LayoutReport.h"
#include "nerio/Page.h"
#include "nerio/StartReport.h"

namespace Nerio {

using Agent::Json;
using Agent::StateFile;
using Series = FillSampler::Series;

namespace {

/** A part of a whole in percent; 0 of nothing. */
double percentOf(U64 part, U64 whole) {
    return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

/** What a start says of a table, or of what an agent did, under one name. */
struct Writer {
    std::string name;
    U64 cold = 0;
    U64 warm = 0;
};

U64 writesOf(Json const& agent) {
    return agent["startWrites"].get<U64>() + agent["registerWrites"].get<U64>();
}

std::vector<Writer> writersOf(Json const& cold, Json const& warm) {
    std::vector<Writer> all;
    for (std::size_t i = 0; i < cold["tables"].size(); ++i) {
        auto const& table = cold["tables"][i];
        all.push_back({table["name"].get<std::string>(), table["registerWrites"].get<U64>(),
                       warm["tables"][i]["registerWrites"].get<U64>()});
    }
    for (auto const* agent : agentReports) {
        if (cold.contains(agent)) all.push_back({agent, writesOf(cold[agent]), writesOf(warm[agent])});
    }
    return all;
}

/** Rows that were held against each other, and what does not agree on them. */
struct Found {
    U64 rows = 0;
    std::vector<std::string> differences;
};

void addDifferences(char const* when, Json const& holder, Found& found) {
    for (auto const& difference : holder["differences"]) {
        found.differences.push_back(
            fmt::format("{}: {} row {}: {}", when, difference["hwTable"].get<std::string>(),
                        difference["row"].get<U64>(), difference["text"].get<std::string>()));
    }
}

Found foundOf(char const* when, Json const& start) {
    Found found;
    for (auto const& table : start["tables"]) {
        found.rows += table["rows"].get<U64>();
        addDifferences(when, table, found);
    }
    for (auto const* agent : agentReports) {
        if (!start.contains(agent)) continue;
        found.rows += start[agent]["verifiedRows"].get<U64>();
        addDifferences(when, start[agent], found);
    }
    return found;
}

/** A number in groups of three digits. */
std::string grouped(U64 number) {
    auto text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, 1, ',');
    }
    return text;
}

std::string card(U64 number, char const* text) {
    return fmt::format("<div class=\"card\"><div class=\"big\">{}</div><div class=\"soft\">{}</div></div>\n",
                       grouped(number), text);
}

std::string verification(Json const& cold, Json const& warm) {
    auto const before = foundOf("after the cold start", cold);
    auto after = foundOf("after the warm restart", warm);
    after.differences.insert(after.differences.begin(), before.differences.begin(), before.differences.end());
    auto const count = after.differences.size();
    auto all = fmt::format(
        "<section id=\"verification\" data-rows=\"{}\" data-differences=\"{}\">\n"
        "<h2>Verification</h2>\n",
        after.rows, count);
    if (count == 0) {
        return fmt::format(
            "{}<p class=\"good\">Software, shadow and chip agree on all {} rows, after the cold start "
            "and after the warm restart.</p>\n</section>\n",
            all, grouped(after.rows));
    }
    all += fmt::format("<p class=\"bad\">{} rows do not agree.</p>\n<ul>\n", count);
    for (auto const& difference : after.differences)
        all += fmt::format("<li>{}</li>\n", escaped(difference));
    return all + "</ul>\n</section>\n";
}

/* The measures of a curve, whose picture is as wide as its card. */
constexpr unsigned curveWidth = 300;
constexpr unsigned curveHeight = 80;

std::string curve(Series const& series, U64 allWrites) {
    U64 most = 1;
    for (auto const& point : series.points)
        most = std::max(most, point.second);
    auto const x = [&](U64 writes) { return percentOf(writes, allWrites) / 100 * curveWidth; };
    auto const y = [&](U64 used) {
        return curveHeight - 2 - percentOf(used, most) / 100 * (curveHeight - 6);
    };
    auto path = fmt::format("M{:.1f} {}", x(series.points.front().first), curveHeight - 2);
    for (auto const& [writes, used] : series.points)
        path += fmt::format(" L{:.1f} {:.1f}", x(writes), y(used));
    return fmt::format(
        "<svg class=\"curve\" viewBox=\"0 0 {0} {1}\" preserveAspectRatio=\"none\" role=\"img\" "
        "aria-label=\"rows of {2} in use over register writes\">"
        "<path d=\"M0 {3} H{0}\" style=\"stroke:var(--line);fill:none\"/>"
        "<path d=\"{4} V{3} Z\" style=\"fill:var(--f0);stroke:none\"/>"
        "<path d=\"{4}\" style=\"fill:none;stroke:var(--accent);stroke-width:1.5\" "
        "vector-effect=\"non-scaling-stroke\"/></svg>",
        curveWidth, curveHeight, escaped(series.name), curveHeight - 2, path);
}

std::string fillCards(std::vector<Series> const& all) {
    U64 writes = 1;
    for (auto const& series : all)
        writes = std::max(writes, series.points.back().first);
    auto text = fmt::format(
        "<section id=\"fill\">\n<h2>Fill</h2>\n<p>Rows in use of each table and stage, while {} registers "
        "were written. "
        "Each curve is as high as its last value; the bar below it tells of how many rows that is.</p>\n"
        "<div class=\"cards\">\n",
        grouped(writes));
    for (auto const& series : all) {
        auto const used = series.points.back().second;
        auto const percent = percentOf(used, series.rows);
        text += fmt::format(
            "<div class=\"card fill\" data-table=\"{0}\" data-used=\"{1}\" "
            "data-rows=\"{2}\"><b>{0}</b>\n{3}\n"
            "<div class=\"ends soft\"><span>{1} of {2} {4}</span><span>{5:.2f} %</span></div>"
            "<div class=\"track\"><div class=\"level\" style=\"width:{6:.2f}%\"></div></div></div>\n",
            escaped(series.name), used, series.rows, curve(series, writes),
            series.isHash ? "rows" : "entries", percent, std::min(percent, 100.0));
    }
    return text + "</div>\n</section>\n";
}

std::string bar(std::string const& name, U64 value, U64 most, char const* kind = "") {
    return fmt::format(
        "<span class=\"name\">{}</span><div class=\"track\"><div class=\"bar{}\" data-value=\"{}\" "
        "style=\"width:{:.2f}%\"></div></div><span class=\"number\">{}</span>\n",
        escaped(name), kind, value, percentOf(value, most), grouped(value));
}

std::string moves(std::vector<Series> const& all) {
    NerioSwitchApi::MoveHistogram sum{};
    for (auto const& series : all) {
        for (std::size_t length = 0; length < sum.size(); ++length)
            sum[length] += series.moves[length];
    }
    auto const longest = sum.size() - 1;
    std::size_t end = sum.size();
    while (end > 1 && sum[end - 1] == 0)
        --end;
    auto const most = *std::ranges::max_element(sum);
    std::string text =
        "<section id=\"moves\">\n<h2>Moves</h2>\n<p>How many entries of hash tables and route stages had to "
        "make way "
        "for a new one, over all placements.</p>\n<div class=\"bars\">\n";
    for (std::size_t length = 0; length < end; ++length) {
        auto const name = length == longest ? fmt::format("{} or more", length)
                          : length == 1     ? std::string("1 move")
                                            : fmt::format("{} moves", length);
        text += bar(name, sum[length], most);
    }
    return text + "</div>\n</section>\n";
}

std::string registerWrites(std::vector<Writer> const& writers) {
    U64 most = 1;
    for (auto const& writer : writers)
        most = std::max({most, writer.cold, writer.warm});
    std::string text =
        "<section id=\"writes\">\n<h2>Register writes</h2>\n<p><span class=\"key\"></span> cold start, "
        "<span class=\"key warm\"></span> warm restart where it wrote any.</p>\n<div class=\"bars\">\n";
    for (auto const& writer : writers) {
        text += bar(writer.name, writer.cold, most);
        if (writer.warm != 0) text += bar(writer.name, writer.warm, most, " warm");
    }
    return text + "</div>\n</section>\n";
}

/** The families of a switch: of its tables, and of those of its agents. */
std::vector<std::string> familiesOf(Json const& cold) {
    std::vector<std::string> all;
    auto const add = [&all](std::string name) {
        if (std::ranges::find(all, name) == all.end()) all.push_back(std::move(name));
    };
    for (auto const& table : cold["tables"])
        add(table["family"].get<std::string>());
    if (cold.contains("routes")) {
        for (auto const& stage : cold["routes"]["stages"])
            add(fmt::format("lpm{}", stage["stage"].get<U32>()));
    }
    if (cold.contains("multicastRoutes")) {
        for (auto const* name : {"starG", "sG", "vlanGroup"})
            add(name);
    }
    if (cold.contains("translations")) {
        for (auto const* name : {"natMatch", "natDynMatch", "natRewrite"})
            add(name);
    }
    return all;
}

std::string rowsSection(StateFile const& file, Json const& cold) {
    std::string text =
        "<section id=\"rows\">\n<h2>Rows</h2>\n<p>The rows of each table, field by field.</p>\n";
    for (auto const& name : familiesOf(cold)) {
        auto const layouts = layoutsOf(*Agent::family(name), {{file.profile->profileName(), file.profile}});
        text += fmt::format("<details data-family=\"{0}\"><summary>{0}</summary>\n{1}</details>\n",
                            escaped(name), layoutPictures(layouts));
    }
    return text + "</section>\n";
}

}  // namespace

std::string runPage(StateFile const& file, Json const& coldStart, Json const& warmStart,
                    std::vector<Series> const& fill) {
    auto const& profile = *file.profile;
    auto const writers = writersOf(coldStart, warmStart);
    U64 entries = 0;
    U64 cold = 0;
    U64 warm = 0;
    for (auto const& table : coldStart["tables"])
        entries += table["entries"].get<U64>();
    for (auto const& writer : writers) {
        cold += writer.cold;
        warm += writer.warm;
    }
    auto body = fmt::format(
        "<h1>{}</h1>\n<p class=\"soft\">{} ports, {} pipelines, hardware API {}, on an "
        "embedded chip</p>\n<div class=\"cards\">\n",
        escaped(profile.profileName()), profile.numPorts, profile.numPipelines, profile.hwApi.text());
    body += card(coldStart["tables"].size(), "tables");
    body += card(entries, "entries of tables");
    body += card(cold, "register writes of the cold start");
    body += card(warm, "register writes of the warm restart");
    body += "</div>\n";
    body += verification(coldStart, warmStart) + fillCards(fill) + moves(fill) + registerWrites(writers) +
            rowsSection(file, coldStart);
    return page(fmt::format("nerio run: {}", profile.profileName()), body);
}

}  // namespace Nerio

#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "nerio/Script.h"

namespace NerioTest {

using Agent::Json;

/** A script in this process; lines and answers are JSON texts. */
class ScriptLines {
public:
    ScriptLines() = default;
    explicit ScriptLines(std::filesystem::path const& directory) : script_(directory) {}

    Json operator()(std::string const& line) { return script_.answer(Json::parse(line)); }

    /** Carries a line out; one that fails fails the test. */
    Json ok(std::string const& line) {
        auto answer = (*this)(line);
        EXPECT_EQ(answer["ok"], true) << line << " -> " << answer;
        return answer;
    }
    /** The answer to a line that fails, as "TYPE: MESSAGE"; empty for one that does not. */
    std::string failure(std::string const& line) {
        auto const answer = (*this)(line);
        if (answer["ok"] == true) return {};
        EXPECT_EQ(answer.size(), 3u) << answer;
        return answer["error"].get<std::string>() + ": " + answer["message"].get<std::string>();
    }

private:
    Nerio::Script script_;
};

inline namespace Literals {

inline Json operator""_json_text(char const* text, std::size_t size) {
    return Json::parse(std::string(text, size));
}

}  // namespace Literals

/** A script with the table "ports", not started. */
class ScriptFixture : public testing::Test {
protected:
    ScriptFixture() { script.ok(R"({"op":"table","family":"portConfig","name":"ports"})"); }

    void start(std::string const& mode = "cold") { script.ok(R"({"op":"start","mode":")" + mode + "\"}"); }
    void drain() {
        script.ok(R"({"op":"registers"})");
        script.ok(R"({"op":"published"})");
    }
    /** Starts cold and forgets what was written and published for it. */
    void startQuietly() {
        start();
        drain();
    }
    Json entryIs(int port, std::string const& result) {
        return script(R"({"op":"entryIs","table":"ports","key":{"portId":)" + std::to_string(port) +
                      R"(},"result":)" + result + "}");
    }
    Json entry(int port) {
        return script.ok(R"({"op":"entry","table":"ports","key":{"portId":)" + std::to_string(port) + "}}");
    }
    Json words(int row) {
        return script.ok(R"({"op":"shadow","table":"ports","hwTable":0,"index":)" + std::to_string(row) +
                         "}")["words"];
    }
    Json writes() { return script.ok(R"({"op":"registers"})")["writes"]; }
    Json changes() { return script.ok(R"({"op":"published"})")["changes"]; }
    Json entries() { return script.ok(R"({"op":"entries","table":"ports"})")["entries"]; }

    /** Everything of a started table that a line can see; draining writes and changes. */
    Json everything() {
        Json all{entries(), writes(), changes(), script.ok(R"({"op":"capacity"})"),
                 script.ok(R"({"op":"inconsistent","table":"ports"})")};
        for (int row = 0; row < 52; ++row)
            all.push_back(
                script(R"({"op":"shadow","table":"ports","hwTable":0,"index":)" + std::to_string(row) + "}"));
        return all;
    }

    ScriptLines script;
};

}  // namespace NerioTest

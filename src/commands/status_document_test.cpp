#include "commands/status_document.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace duskwell {
namespace {

using nlohmann::json;

TEST(StatusDocumentDate, FormatsUTCWithWholeSeconds) {
    EXPECT_EQ(StatusDocument::iso8601UTC(dateFromUnix(1794767400)), "2026-11-15T18:30:00Z");
    EXPECT_EQ(StatusDocument::iso8601UTC(dateFromUnix(1794767400.9)), "2026-11-15T18:30:00Z");
    EXPECT_EQ(StatusDocument::iso8601UTC(dateFromUnix(951868799)), "2000-02-29T23:59:59Z");
    EXPECT_EQ(StatusDocument::iso8601UTC(dateFromUnix(-1)), "1969-12-31T23:59:59Z");
    EXPECT_EQ(StatusDocument::iso8601UTC(dateFromUnix(0)), "1970-01-01T00:00:00Z");
}

TEST(StatusDocumentKeys, IdleHasOnlyTheAlwaysPresentKeys) {
    StatusFacts f;
    f.status = "Idle";
    f.version = "0.1.0";
    f.mode = KeepMode::timer;  // ignored while inactive
    f.endsAt = dateFromUnix(1794767400);
    f.sleepsInSeconds = 12;
    const json doc = json::parse(StatusDocument::json(f));
    EXPECT_EQ(doc, json::parse(R"({"active": false, "status": "Idle", "version": "0.1.0", "agents": []})"));
}

TEST(StatusDocumentKeys, ActiveCarriesModeEndAndTruncatedCountdown) {
    StatusFacts f;
    f.active = true;
    f.status = "x";
    f.version = "1";
    f.mode = KeepMode::auto_;
    f.endsAt = dateFromUnix(1794767400);
    f.sleepsInSeconds = 599.99;
    f.agents = {{"Codex", 2, "working"}, {"Claude Code", 1, "idle"}};
    const json doc = json::parse(StatusDocument::json(f));
    EXPECT_EQ(doc["mode"], "auto");
    EXPECT_EQ(doc["endsAt"], "2026-11-15T18:30:00Z");
    ASSERT_TRUE(doc["sleepsInSeconds"].is_number_integer());
    EXPECT_EQ(doc["sleepsInSeconds"], 599);
    ASSERT_EQ(doc["agents"].size(), 2u);
    EXPECT_EQ(doc["agents"][0], json::parse(R"({"name": "Codex", "count": 2, "state": "working"})"));
    EXPECT_EQ(doc["agents"][1]["name"], "Claude Code") << "snapshot order, not sorted";
}

TEST(StatusDocumentText, IsPrettyPrintedWithSortedKeys) {
    StatusFacts f;
    f.active = true;
    f.status = "1:30 left";
    f.version = "0.1.0";
    f.mode = KeepMode::timer;
    f.endsAt = dateFromUnix(1794767400);
    const std::string text = StatusDocument::json(f);
    EXPECT_EQ(text,
              "{\n"
              "  \"active\": true,\n"
              "  \"agents\": [],\n"
              "  \"endsAt\": \"2026-11-15T18:30:00Z\",\n"
              "  \"mode\": \"timer\",\n"
              "  \"status\": \"1:30 left\",\n"
              "  \"version\": \"0.1.0\"\n"
              "}\n");
}

TEST(StatusDocumentText, InvalidUtf8IsReplacedRatherThanLosingTheFile) {
    StatusFacts f;
    f.status = std::string("Claude \xFF working");
    f.version = "1";
    const json doc = json::parse(StatusDocument::json(f));
    EXPECT_EQ(doc["status"], "Claude \xEF\xBF\xBD working");
}

TEST(StatusDocumentRead, WrongTypesReadAsAbsentAndNeverThrow) {
    struct Case {
        const char* text;
        bool parses;
        bool active;
        std::string status;
        std::optional<std::string> mode;
        std::optional<std::int64_t> sleeps;
        std::size_t agents;
    };
    const Case cases[] = {
        {R"({"active": true, "status": "1:30 left", "mode": "timer", "sleepsInSeconds": 42,
             "agents": [{"name": "Claude", "count": 2, "state": "working"}]})", true, true, "1:30 left", "timer", 42, 1},
        {R"({"active": "yes", "status": 7, "mode": ["timer"], "sleepsInSeconds": "soon", "agents": {}})",
         true, false, "", std::nullopt, std::nullopt, 0},
        {R"({"active": true, "sleepsInSeconds": 1e300, "agents": [3, null, {"count": "x"}]})",
         true, true, "", std::nullopt, std::nullopt, 1},
        {R"({"sleepsInSeconds": 12.9})", true, false, "", std::nullopt, 12, 0},
        {"[]", false, false, "", std::nullopt, std::nullopt, 0},
        {"{", false, false, "", std::nullopt, std::nullopt, 0},
    };
    for (const auto& c : cases) {
        const auto r = StatusDocument::read(c.text);
        ASSERT_EQ(r.has_value(), c.parses) << c.text;
        if (!r) continue;
        EXPECT_EQ(r->active, c.active) << c.text;
        EXPECT_EQ(r->status, c.status) << c.text;
        EXPECT_EQ(r->mode, c.mode) << c.text;
        EXPECT_EQ(r->sleepsInSeconds, c.sleeps) << c.text;
        EXPECT_EQ(r->agents.size(), c.agents) << c.text;
    }
    const auto odd = StatusDocument::read(R"({"agents": [{"count": "x", "name": 5}]})");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->agents[0].name, "?");
    EXPECT_EQ(odd->agents[0].count, 0);
    EXPECT_FALSE(StatusDocument::read("{\"x\": " + std::string(100000, '[') + std::string(100000, ']') + "}"));
    const auto held = StatusDocument::read(R"({"held": false, "heldReasons": ["lid", 3, "profile"]})");
    ASSERT_TRUE(held);
    EXPECT_EQ(held->held, false);
    EXPECT_EQ(held->heldReasons, (std::vector<std::string>{"lid", "profile"}));
    EXPECT_EQ(StatusDocument::read(R"({"held": "no"})")->held, std::nullopt);
}

}  // namespace
}  // namespace duskwell

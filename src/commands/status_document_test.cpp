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

}  // namespace
}  // namespace duskwell

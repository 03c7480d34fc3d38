// duskwell agents [--json]: what Duskwell sees right now, measured by this process itself,
// so it works whether or not the app runs.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "agents/agent_monitor.h"
#include "cli_command.h"
#include "cli_text.h"
#include "core/localization.h"
#include "integration/agent_integration.h"

namespace duskwell::cli {
namespace {

// CPU is measured between two samples; one second apart keeps the command under two.
constexpr auto kSampleGap = std::chrono::milliseconds(1000);

std::string isoUtc(Date d) {
    const std::time_t t = std::chrono::system_clock::to_time_t(d);
    std::tm tm{};
    ::gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

std::string localClock(Date d) {
    const std::time_t t = std::chrono::system_clock::to_time_t(d);
    std::tm tm{};
    ::localtime_r(&t, &tm);
    char buf[16];
    std::strftime(buf, sizeof buf, "%H:%M:%S", &tm);
    return buf;
}

std::string stateText(AgentState s) {
    switch (s.value()) {
        case AgentState::working: return T("작업 중", "working");
        case AgentState::waiting: return T("대기 중", "waiting");
        case AgentState::idle: break;
    }
    return T("유휴", "idle");
}

// Display width of a UTF-8 text, counting Hangul as two columns.
size_t columns(const std::string& s) {
    size_t n = 0;
    for (size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        const size_t len = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        n += len == 3 ? 2 : 1;
        i += len;
    }
    return n;
}

std::string pad(const std::string& s, size_t width) {
    const size_t w = columns(s);
    return w >= width ? s + " " : s + std::string(width - w, ' ');
}

// How a kind's hooks stand: "connected", "untrusted" (Codex has not been told to run
// them yet), "off"; nothing for kinds without hooks.
std::optional<std::string> hookStatus(AgentKind kind) {
    if (!kind.supportsHooks()) return std::nullopt;
    if (!AgentIntegration::isInstalled(kind)) return "off";
    return AgentIntegration::awaitsTrust(kind) ? "untrusted" : "connected";
}

std::string hooksText(const AgentItem& item) {
    if (item.viaHooks) return T("예", "yes");
    if (hookStatus(item.kind) == "untrusted") return T("신뢰 전", "untrusted");
    return T("아니요", "no");
}

void printTrustNotes(std::ostream& out) {
    for (AgentKind kind : AgentKind::allCases()) {
        if (!AgentIntegration::awaitsTrust(kind)) continue;
        out << "\n"
            << T(std::string(kind.title()) + " 훅이 연결되었지만 아직 신뢰되지 않았습니다. ",
                 std::string(kind.title()) + " hooks are connected but not trusted yet. ")
            << AgentIntegration::connectHint(kind).value_or("") << "\n";
    }
}

void printTable(const AgentSnapshot& snap, std::ostream& out) {
    if (snap.items.empty()) {
        out << T("감지된 에이전트가 없습니다.", "No agents detected.") << "\n";
        printTrustNotes(out);
        return;
    }
    const std::vector<std::string> head = {T("에이전트", "AGENT"), T("개수", "COUNT"), T("상태", "STATE"),
                                           T("시작", "SINCE"), T("훅", "HOOKS")};
    std::vector<std::vector<std::string>> rows{head};
    for (const auto& item : snap.items) {
        rows.push_back({std::string(item.kind.title()), std::to_string(item.count), stateText(item.state),
                        item.since ? localClock(*item.since) : "-",
                        hooksText(item)});
    }
    std::vector<size_t> widths(head.size(), 0);
    for (const auto& r : rows)
        for (size_t i = 0; i < r.size(); ++i) widths[i] = std::max(widths[i], columns(r[i]) + 2);
    for (const auto& r : rows) {
        std::string line;
        for (size_t i = 0; i < r.size(); ++i) line += i + 1 < r.size() ? pad(r[i], widths[i]) : r[i];
        out << line << "\n";
    }
    if (snap.gpu) out << "\nGPU " << *snap.gpu << "%\n";
    printTrustNotes(out);
}

nlohmann::json toJson(const AgentSnapshot& snap) {
    auto rows = nlohmann::json::array();
    for (const auto& item : snap.items) {
        auto sessions = nlohmann::json::array();
        for (const auto& s : snap.sessions) {
            if (s.kind != item.kind) continue;
            sessions.push_back({{"id", s.id},
                                {"state", std::string(s.state.rawValue())},
                                {"project", s.project ? nlohmann::json(*s.project) : nlohmann::json(nullptr)}});
        }
        nlohmann::json row = {{"kind", std::string(item.kind.rawValue())},
                              {"name", std::string(item.kind.title())},
                              {"count", item.count},
                              {"state", std::string(item.state.rawValue())},
                              {"viaHooks", item.viaHooks},
                              {"since", item.since ? nlohmann::json(isoUtc(*item.since)) : nlohmann::json(nullptr)},
                              {"sessions", std::move(sessions)}};
        if (const auto hooks = hookStatus(item.kind)) row["hooks"] = *hooks;
        rows.push_back(std::move(row));
    }
    return rows;
}

int runAgents(const std::vector<std::string>& args) {
    bool json = false;
    for (const auto& a : args) {
        if (a == "--json") json = true;
        else return fail(usage, say(Msg::unexpected, {a, "agents"}));
    }

    // The real services main() installed: /proc (or ps/nettop) and the user's home.
    AgentMonitor monitor;
    monitor.scanNow();  // the baseline for CPU and byte counters
    std::this_thread::sleep_for(kSampleGap);
    const AgentSnapshot snap = monitor.scanNow();

    if (json) std::cout << toJson(snap).dump(2) << "\n";
    else printTable(snap, std::cout);
    return done;
}

const Registration registration{{
    "agents",
    "agents [--json]",
    {"Lists the AI agents and model runners Duskwell detects right now, with their state.",
     "Duskwell이 지금 감지한 AI 에이전트와 모델 실행기를 상태와 함께 보여줘요."},
    {{"--json", {"print a JSON array, one object per agent kind (kind, name, count, state, viaHooks, since, sessions)",
                 "JSON 배열을 출력, 에이전트 종류마다 객체 하나 (kind, name, count, state, viaHooks, since, sessions)"}}},
    runAgents,
}};

}  // namespace
}  // namespace duskwell::cli

// The command surfaces of the controller: the status file and its one-line summary, the
// "duskwell" URL routes and the terminal command's installer. Main thread only.
#include <filesystem>
#include <limits>
#include <system_error>

#include "commands/atomic_file.h"
#include "commands/status_document.h"
#include "commands/url.h"
#include "core/app_config.h"
#include "core/awake_controller.h"
#include "core/clock.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/text.h"

namespace duskwell {

namespace fs = std::filesystem;

namespace {

// An unchanged file is still rewritten this often, so its "written" time tells a reader
// that the app is alive (a file older than this says it may not be).
constexpr double statusRefreshSeconds = 60;

std::string cliCopyPath() { return AppConfig::supportDir() + "/bin/duskwell"; }
std::string cliLinkDir() { return services().platform->homeDirectory() + "/.local/bin"; }

std::optional<int> parseMinutes(const std::optional<std::string>& value) {
    if (!value) return std::nullopt;
    const auto n = Text::parseInteger(*value);
    if (!n || *n < std::numeric_limits<int>::min() || *n > std::numeric_limits<int>::max())
        return std::nullopt;
    return static_cast<int>(*n);
}

// The readable text of a failed file operation, e.g. "Couldn't install the terminal
// command: Permission denied (/home/ann/.local/bin/duskwell)".
std::string installError(const std::error_code& ec, const std::string& path) {
    return T("터미널 명령을 설치하지 못했어요: ", "Couldn't install the terminal command: ") + ec.message() +
           " (" + path + ")";
}

}  // namespace

// ---- status file ----

// "Claude Code is waiting for you" when one agent waits; a count when several do.
std::optional<std::string> AwakeController::waitingText() const {
    int waiting = 0;
    std::optional<AgentKind> kind;
    for (const auto& session : agents_.sessions) {
        if (session.state != AgentState::waiting) continue;
        ++waiting;
        kind = session.kind;
    }
    if (waiting == 0) return std::nullopt;
    if (waiting == 1) {
        const std::string title(kind->title());
        return T(title + "이(가) 기다리고 있어요", title + " is waiting for you");
    }
    const std::string n = std::to_string(waiting);
    return T("AI 에이전트 " + n + "개가 기다리고 있어요", n + " AI agents are waiting for you");
}

std::string AwakeController::statusLine() const {
    std::vector<std::string> parts;

    if (!isActive_) {
        parts.push_back(T("대기 중", "Idle"));
    } else if (activeMode_ != KeepMode::auto_) {
        if (const auto left = remaining())
            parts.push_back(T("남은 시간 " + shortClock(*left), shortClock(*left) + " left"));
        else
            parts.push_back(T("시간 제한 없음", "No time limit"));
    } else {
        std::vector<std::string> working;
        for (const auto& session : agents_.sessions)
            if (session.state == AgentState::working) working.push_back(describe(session, true));
        const int n = agents_.workingCount();
        if (!working.empty()) {
            std::string joined;
            for (size_t i = 0; i < working.size(); ++i) joined += (i ? ", " : "") + working[i];
            parts.push_back(joined);
        } else if (n >= 1) {
            parts.push_back(T("AI 작업 " + std::to_string(n) + "개 진행 중", std::to_string(n) + " AI tasks running"));
        } else if (const auto waiting = waitingText()) {
            parts.push_back(*waiting);
        } else if (const auto idle = idleRemaining()) {
            const std::string sleeping = T(shortClock(*idle) + " 후 잠자기", "sleeping in " + shortClock(*idle));
            int present = 0;
            for (const auto& item : agents_.items) present += item.count;
            if (present == 0) {
                parts.push_back(T("모두 조용함 · ", "All quiet · ") + sleeping);
            } else {
                const std::string count = std::to_string(present);
                parts.push_back(T("AI 에이전트 " + count + "개 유휴 · ",
                                  count + (present == 1 ? " AI agent idle · " : " AI agents idle · ")) + sleeping);
            }
        }
    }

    // What the period set up and no longer holds comes first: it is what matters most.
    if (held_.state == HoldVerdict::State::broken) parts.insert(parts.begin(), HoldCheck::statusLead(held_.failing));

    if (battery_.percent) {
        std::string part = T("배터리 ", "Battery ") + std::to_string(*battery_.percent) + "%";
        if (battery_.minutesLeft)
            part += T(" (약 ", " (~") + shortClock(*battery_.minutesLeft * 60.0) + ")";
        parts.push_back(part);
    }

    if (lidClosed_ == true) parts.push_back(T("뚜껑 닫힘", "Lid closed"));

    std::string line;
    for (size_t i = 0; i < parts.size(); ++i) line += (i ? " · " : "") + parts[i];
    return line;
}

void AwakeController::writeStatusFile(StatusWrite when) {
    StatusFacts facts;
    facts.active = isActive_;
    facts.status = statusLine();
    facts.version = AppConfig::version();
    if (isActive_) {
        facts.mode = activeMode_;
        facts.endsAt = endDate_;
        facts.sleepsInSeconds = idleRemaining();
        if (held_.state != HoldVerdict::State::unknown) facts.held = held_.state == HoldVerdict::State::holds;
        for (HoldItem item : held_.failing) facts.heldReasons.emplace_back(HoldCheck::code(item));
    }
    for (const auto& item : agents_.items)
        facts.agents.push_back({std::string(item.kind.title()), item.count, std::string(item.state.rawValue())});

    std::string content, text;
    const Date now = services().clock->now();
    try {
        content = StatusDocument::json(facts);
        if (when == StatusWrite::ifChanged && content == lastStatusJSON_ && lastStatusWritten_ &&
            secondsBetween(*lastStatusWritten_, now) < statusRefreshSeconds)
            return;
        facts.written = now;
        text = StatusDocument::json(facts);
    } catch (...) {
        return;  // the next call tries again
    }

    if (createPrivateDirectories(AppConfig::supportDir())) return;
    if (writeFileAtomically(AppConfig::statusFile(), text)) {
        lastStatusJSON_ = std::move(content);
        lastStatusWritten_ = now;
    }
}

// ---- URL routes ----

bool AwakeController::handleURL(const std::string& text) {
    const auto url = URL::parse(text);
    if (!url || url->scheme != "duskwell" || !url->host) return false;
    const std::string& host = *url->host;

    if (host == "start") {
        const auto modeText = url->queryValue("mode");
        KeepMode mode = KeepMode::auto_;
        if (modeText == "timer") mode = KeepMode::timer;
        else if (modeText == "until") mode = KeepMode::until;
        const auto minutes = parseMinutes(url->queryValue("minutes"));
        if (minutes) setSelectedMinutes(*minutes);
        setMode(mode);
        start(mode, minutes);
    } else if (host == "stop") {
        stop();
    } else if (host == "sleep") {
        if (isActive_) stop(T("명령으로 잠자기를 요청했어요.", "Sleep requested by command."));
        sleepSoon(2.0);
    } else if (host == "toggle") {
        if (isActive_) stop();
        else start();
    } else if (host == "extend") {
        extend(parseMinutes(url->queryValue("minutes")).value_or(60));
    } else {
        return false;
    }
    writeStatusFile();
    return true;
}

// ---- terminal command ----

bool AwakeController::cliInstalled() const {
    std::error_code ec;
    return fs::exists(cliCopyPath(), ec);
}

void AwakeController::installCLI() {
    const std::string binDir = AppConfig::supportDir() + "/bin";
    const std::string copy = cliCopyPath();
    std::error_code ec;

    if (createPrivateDirectories(binDir)) {
        return setLastMessage(installError(std::make_error_code(std::errc::permission_denied), binDir));
    }

    const auto resource = services().platform->resourcePath("duskwell-cli");
    if (!resource) {
        return setLastMessage(installError(std::make_error_code(std::errc::no_such_file_or_directory),
                                           "duskwell-cli"));
    }

    fs::remove(copy, ec);
    if (ec) return setLastMessage(installError(ec, copy));
    fs::copy_file(*resource, copy, ec);
    if (ec) return setLastMessage(installError(ec, *resource));

    fs::permissions(copy, static_cast<fs::perms>(0755), fs::perm_options::replace, ec);
    if (ec) return setLastMessage(installError(ec, copy));

    const std::string linkDir = cliLinkDir();
    if (fs::is_directory(linkDir, ec)) {
        const std::string link = linkDir + "/duskwell";
        fs::remove(link, ec);
        if (ec) return setLastMessage(installError(ec, link));
        fs::create_symlink(copy, link, ec);
        if (ec) return setLastMessage(installError(ec, link));
    }

    announce();  // cliInstalled reads the file system; views must look again
    setLastMessage(T("터미널 명령을 설치했어요: duskwell start | stop | status",
                     "Terminal command installed: duskwell start | stop | status"));
}

void AwakeController::refreshCLI() {
    if (!cliInstalled()) return;
    installCLI();
    setLastMessage(std::nullopt);
}

}  // namespace duskwell

// `duskwell connect claude|codex` and `duskwell disconnect claude|codex`: adds or removes
// Duskwell's hook in the agent's settings file, so that a machine without the app's
// window (a headless Linux box) can connect its agents.
//
// These two need only the home folder, the language and the shipped hook program, so
// they bring their own small platform: HOME from the environment and the programs that
// ship beside this executable. No app needs to be running.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>
#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

#include "agents/agent_kind.h"
#include "cli_command.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "integration/agent_integration.h"

namespace duskwell::cli {
namespace {

namespace fs = std::filesystem;

std::optional<fs::path> ownExecutable() {
#ifdef __APPLE__
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string buf(size, '\0');
    if (_NSGetExecutablePath(buf.data(), &size) != 0) return std::nullopt;
    buf.resize(std::char_traits<char>::length(buf.c_str()));
    std::error_code ec;
    auto resolved = fs::canonical(buf, ec);
    if (ec) return std::nullopt;
    return resolved;
#else
    std::error_code ec;
    auto resolved = fs::read_symlink("/proc/self/exe", ec);
    if (ec) return std::nullopt;
    return resolved;
#endif
}

class ConnectPlatform final : public Platform {
public:
    std::string homeDirectory() const override {
        const char* home = std::getenv("HOME");
        return home ? home : "";
    }
    std::string userName() const override {
        const char* user = std::getenv("USER");
        return user ? user : "";
    }
    int processId() const override { return static_cast<int>(getpid()); }
    std::vector<std::string> preferredLanguages() const override {
        for (const char* var : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
            const char* v = std::getenv(var);
            if (v && *v) return {std::string(v)};
        }
        return {};
    }
    bool runningFromBundle() const override { return false; }
    std::string bundleIdentifier() const override { return "app.duskwell.Duskwell"; }
    std::optional<std::string> resourcePath(const std::string& name) const override {
        std::vector<fs::path> places;
        if (auto exe = ownExecutable()) places.push_back(exe->parent_path() / name);
#ifdef __APPLE__
        places.push_back(fs::path("/Applications/Duskwell.app/Contents/Resources") / name);
#endif
        for (const auto& p : places) {
            std::error_code ec;
            if (fs::is_regular_file(p, ec)) return p.string();
        }
        return std::nullopt;
    }
    void requestNotificationAuthorization() override {}
    void notificationPermission(std::function<void(NotificationPermission)> completion) override {
        completion(NotificationPermission::notDetermined);
    }
    void postNotification(const std::string&, const std::string&) override {}
    bool loginItemEnabled() const override { return false; }
    std::optional<std::string> setLoginItem(bool) override { return std::nullopt; }
    bool openURL(const std::string&) override { return false; }
    AdminResult runAsAdmin(const std::string&, const std::string&) override {
        return {AdminOutcome::failed, {}};
    }
};

enum class Direction { connect, disconnect };

int runConnect(Direction direction, const std::vector<std::string>& args) {
    const char* verb = direction == Direction::connect ? "connect" : "disconnect";
    if (args.size() != 1) return fail(usage, std::string("usage: duskwell ") + verb + " claude|codex");
    const auto kind = AgentKind::fromRawValue(args[0]);
    if (!kind || !kind->supportsHooks())
        return fail(usage, "'" + args[0] + "' has no hooks to " + verb + " (claude or codex)");

    ConnectPlatform platform;
    if (platform.homeDirectory().empty()) return fail(refused, "HOME is not set");
    Services installed;
    installed.platform = &platform;
    ServicesScope scope(installed);

    const auto error = direction == Direction::connect ? AgentIntegration::install(*kind)
                                                       : AgentIntegration::uninstall(*kind);
    if (error) return fail(refused, *error);

    const std::string title(kind->title());
    const std::string file = AgentIntegration::configFile(*kind).value_or("");
    if (direction == Direction::connect) {
        std::cout << T(title + " 연결됨: " + file, title + " connected: " + file) << "\n";
        if (*kind == AgentKind::codex) {
            std::cout << T("Codex는 새 훅을 실행하기 전에 검토하고 신뢰할지 묻습니다. "
                           "다음에 Codex를 열 때 Duskwell 훅을 승인해 주세요.",
                           "Codex asks you to review and trust new hooks before it runs them: "
                           "approve the Duskwell hook the next time you open Codex.")
                      << "\n";
        }
    } else {
        std::cout << T(title + " 연결 해제됨", title + " disconnected") << "\n";
    }
    return done;
}

const Registration connectCommand{{
    "connect",
    "connect claude|codex",
    "Adds Duskwell's hook to the agent's settings, for exact working and waiting states.",
    [](const std::vector<std::string>& args) { return runConnect(Direction::connect, args); },
}};

const Registration disconnectCommand{{
    "disconnect",
    "disconnect claude|codex",
    "Removes Duskwell's hook from the agent's settings.",
    [](const std::vector<std::string>& args) { return runConnect(Direction::disconnect, args); },
}};

}  // namespace
}  // namespace duskwell::cli

#include "core/platform_linux.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/app_config.h"
#include "core/dispatcher.h"
#include "core/localization.h"
#include "core/services.h"
#include "power/command_runner.h"

namespace fs = std::filesystem;

namespace duskwell {
namespace {

constexpr const char* unitName = "duskwelld.service";

std::string trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return {};
    const auto e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

bool isCLocale(const std::string& tag) {
    return tag == "C" || tag == "POSIX" || tag.rfind("C.", 0) == 0;
}

// sudo expands %-sequences in its prompt.
std::string sudoPrompt(const std::string& text) {
    std::string out;
    for (char c : text) {
        out += c;
        if (c == '%') out += '%';
    }
    return out;
}

}  // namespace

std::vector<std::string> languagesFromEnvironment(const std::function<const char*(const char*)>& lookup) {
    std::vector<std::string> out;
    if (const char* list = lookup("LANGUAGE"); list && *list) {
        std::string entry;
        for (const char* p = list;; ++p) {
            if (*p == ':' || *p == '\0') {
                if (!entry.empty()) out.push_back(isCLocale(entry) ? "en" : entry);
                entry.clear();
                if (*p == '\0') break;
            } else {
                entry += *p;
            }
        }
        if (!out.empty()) return out;
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* v = lookup(name);
        if (!v || !*v) continue;
        const std::string tag = v;
        return {isCLocale(tag) ? "en" : tag};
    }
    return {};
}

LinuxPlatform::LinuxPlatform() : LinuxPlatform(Options{}) {}
LinuxPlatform::LinuxPlatform(Options options) : options_(std::move(options)) {}

std::optional<std::string> LinuxPlatform::tool(const std::string& name) const {
    for (const char* dir : {"usr/bin", "bin"}) {
        const fs::path p = fs::path(options_.root) / dir / name;
        std::error_code ec;
        if (fs::is_regular_file(p, ec)) return p.string();
    }
    return std::nullopt;
}

std::string LinuxPlatform::homeDirectory() const {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return "/";
}

std::string LinuxPlatform::configDirectory() const {
    // A relative value is invalid by the convention and is ignored, as the tools do.
    if (const char* dir = std::getenv("XDG_CONFIG_HOME"); dir && dir[0] == '/') return dir;
    return homeDirectory() + "/.config";
}

std::string LinuxPlatform::userName() const {
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_name) return pw->pw_name;
    if (const char* user = std::getenv("USER"); user && *user) return user;
    return std::to_string(::getuid());
}

int LinuxPlatform::processId() const { return static_cast<int>(::getpid()); }

std::vector<std::string> LinuxPlatform::preferredLanguages() const {
    return languagesFromEnvironment([](const char* name) { return std::getenv(name); });
}

std::string LinuxPlatform::executable() const {
    if (!options_.executable.empty()) return options_.executable;
    std::error_code ec;
    const auto self = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::string() : self.string();
}

std::optional<std::string> LinuxPlatform::resourcePath(const std::string& name) const {
    const std::string exe = executable();
    if (exe.empty() || name.empty()) return std::nullopt;
    const fs::path dir = fs::path(exe).parent_path();
    for (const fs::path& candidate : {dir / name, dir / ".." / "libexec" / "duskwell" / name}) {
        std::error_code ec;
        if (fs::is_regular_file(candidate, ec)) return candidate.lexically_normal().string();
    }
    return std::nullopt;
}

bool LinuxPlatform::canPostNotifications() const {
    return session_.notificationsAvailable();
}

void LinuxPlatform::notificationPermission(std::function<void(NotificationPermission)> completion) {
    if (!completion) return;
    completion(session_.notificationsAvailable() ? NotificationPermission::authorized : NotificationPermission::denied);
}

void LinuxPlatform::postNotification(const std::string& title, const std::string& body) {
    postNotificationWithButtons(title, body, {});
}

void LinuxPlatform::postNotificationWithButtons(const std::string& title, const std::string& body,
                                                const std::vector<NotificationButton>& buttons) {
    Dispatcher* queue = services().dispatcher;
    // Runs on the bus's pump thread: hop to the main thread, where the handler lives.
    auto picked = [this, queue](const std::string& id) {
        queue->post([this, id] {
            if (buttonHandler_) buttonHandler_(id);
        });
    };
    session_.notify(std::string(AppConfig::name), title, body, buttons,
                    buttons.empty() ? std::function<void(const std::string&)>() : picked);
}

void LinuxPlatform::setNotificationButtonHandler(std::function<void(const std::string& id)> handler) {
    buttonHandler_ = std::move(handler);
}

namespace {
// How the unit we write ourselves is told from one the user or a package put there.
constexpr const char* kUserUnitDescription = "Duskwell: keeps the machine awake while AI agents work";
}  // namespace

std::string LinuxPlatform::unitFile() const {
    return homeDirectory() + "/.config/systemd/user/" + unitName;
}

std::string LinuxPlatform::wantsLink() const {
    return homeDirectory() + "/.config/systemd/user/default.target.wants/" + unitName;
}

bool LinuxPlatform::loginItemEnabled() const {
    std::error_code ec;
    return fs::exists(fs::symlink_status(wantsLink(), ec));
}

std::optional<std::string> LinuxPlatform::setLoginItem(bool enabled) {
    const auto systemctl = tool("systemctl");
    if (!systemctl)
        return T("systemd가 없어 로그인 시 실행을 설정할 수 없습니다.",
                 "Launch at login needs systemd, which is not available here.");
    if (enabled && packagedUnit()) {
        // A copy of ours in ~/.config would hide the packaged unit (and outlive its upgrades).
        if (isOwnUserUnit()) {
            std::error_code ec;
            fs::remove(unitFile(), ec);
        }
    } else if (enabled) {
        const std::string exe = executable();
        if (exe.empty()) return T("실행 파일 위치를 알 수 없습니다.", "Cannot tell where the program is installed.");
        std::error_code ec;
        fs::create_directories(fs::path(unitFile()).parent_path(), ec);
        std::ofstream out(unitFile(), std::ios::trunc);
        out << "[Unit]\n"
               "Description=" << kUserUnitDescription << "\n\n"
               "[Service]\n"
               "Type=simple\n"
               "ExecStart=\"" << exe << "\"\n"
               "KillSignal=SIGTERM\n"
               "TimeoutStopSec=15\n"
               "Restart=on-failure\n"
               "RestartSec=5\n"
               // Runs after any end of the service, once the watchdog died with it.
               "ExecStopPost=\"" << exe << "\" --restore\n\n"
               "[Install]\n"
               "WantedBy=default.target\n";
        out.close();
        if (!out) return T("사용자 서비스 파일을 쓸 수 없습니다: ", "Cannot write the user service file: ") + unitFile();
    }
    const auto result = runCommand(*systemctl, {"--user", enabled ? "enable" : "disable", unitName});
    if (result.status != 0) {
        const std::string detail = trim(result.output);
        return detail.empty() ? T("systemctl이 실패했습니다.", "systemctl failed.") : detail;
    }
    if (!enabled && isOwnUserUnit()) {
        std::error_code ec;
        fs::remove(unitFile(), ec);
    }
    return std::nullopt;
}

std::optional<std::string> LinuxPlatform::packagedUnit() const {
    const std::string exe = executable();
    if (exe.empty()) return std::nullopt;
    // systemd's user unit folders that a package or `cmake --install` fills, in its order.
    for (const char* dir : {"etc/systemd/user", "usr/local/lib/systemd/user", "usr/lib/systemd/user"}) {
        const fs::path unit = fs::path(options_.root) / dir / unitName;
        std::ifstream in(unit);
        for (std::string line; std::getline(in, line);) {
            if (line == "ExecStart=" + exe || line == "ExecStart=\"" + exe + "\"") return unit.string();
        }
    }
    return std::nullopt;
}

bool LinuxPlatform::isOwnUserUnit() const {
    std::ifstream in(unitFile());
    for (std::string line; std::getline(in, line);) {
        if (line == std::string("Description=") + kUserUnitDescription) return true;
    }
    return false;
}

bool LinuxPlatform::openURL(const std::string& url) {
    const auto open = tool("xdg-open");
    if (!open) return false;
    return runCommand(*open, {url}).status == 0;
}

bool LinuxPlatform::stdinIsTerminal() const {
    if (options_.terminal) return *options_.terminal;
    return ::isatty(STDIN_FILENO) == 1;
}

AdminResult LinuxPlatform::runAsAdmin(const std::string& script, const std::string& prompt) {
    // Tests give a stand-in that records the script instead of a password prompt.
    if (const std::string standIn = AppConfig::testOverride("ADMIN", ""); !standIn.empty()) {
        const auto r = runCommand(standIn, {"/bin/sh", "-c", script});
        if (r.status == 0) return {AdminOutcome::succeeded, {}};
        return {AdminOutcome::failed, trim(r.output)};
    }
    const auto sudo = tool("sudo");
    const bool terminal = stdinIsTerminal();
    auto viaSudo = [&]() -> AdminResult {
        // sudo asks on the terminal itself (/dev/tty), so our output pipe does not hide it.
        const std::string ask = sudoPrompt(prompt) + " " + T("암호:", "Password:") + " ";
        const auto r = runCommand(*sudo, {"-p", ask, "/bin/sh", "-c", script});
        if (r.status == 0) return {AdminOutcome::succeeded, {}};
        return {AdminOutcome::failed, trim(r.output)};
    };

    if (const auto pkexec = tool("pkexec")) {
        const auto r = runCommand(*pkexec, {"/bin/sh", "-c", script});
        if (r.status == 0) return {AdminOutcome::succeeded, {}};
        // 126: the dialog was dismissed; older polkit says so with 127.
        if (r.status == 126 || (r.status == 127 && r.output.find("dismissed") != std::string::npos))
            return {AdminOutcome::cancelled, {}};
        // 127 without a dialog: no authentication agent (a remote shell); sudo can still ask.
        if (r.status == 127 && terminal && sudo) return viaSudo();
        std::string message = trim(r.output);
        if (message.empty()) message = T("pkexec가 실패했습니다 (종료 코드 ", "pkexec failed (exit status ") +
                                       std::to_string(r.status) + ")";
        return {AdminOutcome::failed, message};
    }
    if (sudo && terminal) return viaSudo();
    return {AdminOutcome::failed,
            T("관리자 권한을 요청할 방법이 없습니다: pkexec가 없고, sudo로 물어볼 터미널도 없습니다.",
              "There is no way to ask for administrator rights: pkexec is not installed and there is "
              "no terminal for sudo to ask on.")};
}

}  // namespace duskwell

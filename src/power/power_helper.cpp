#include "power/power_helper.h"

#include <filesystem>
#include <system_error>

#include "core/app_config.h"
#include "duskwell_version.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "power/command_runner.h"
#include "power/system_log.h"

namespace duskwell::PowerHelper {
namespace {

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    std::string::size_type at = 0;
    while ((at = text.find(from, at)) != std::string::npos) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
    return text;
}

std::string folderOf(const std::string& path) {
    return std::filesystem::path(path).parent_path().string();
}

// The output without the line break(s) that end it, so that the log entry stays one line.
std::string withoutTrailingBreaks(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

std::optional<InstallError> runAsAdmin(const std::string& script, const std::string& prompt) {
    const AdminResult result = services().platform->runAsAdmin(script, prompt);
    switch (result.outcome) {
    case AdminOutcome::succeeded: return std::nullopt;
    case AdminOutcome::cancelled: return InstallError::cancelled();
    case AdminOutcome::failed: return InstallError::failed(result.message);
    }
    return InstallError::failed(result.message);
}

}  // namespace

std::string InstallError::localizedDescription() const {
    switch (case_) {
    case Case::failed: return T("권한 설정 실패: " + message_, "Permission setup failed: " + message_);
    case Case::badUser: return T("지원하지 않는 사용자 이름입니다.", "Unsupported user name.");
    case Case::missingResource: return T("앱 번들에 도우미 파일이 없습니다.", "Helper file is missing from the app.");
    case Case::cancelled: return T("권한 설정이 취소되었습니다.", "Permission setup was cancelled.");
    }
    return {};
}

std::string helperPath() { return AppConfig::helperPath(); }
std::string expectedHelperSha256() { return DUSKWELL_HELPER_SHA256; }
std::string sudoersPath() { return AppConfig::sudoersPath(); }

bool isInstalled() {
    const std::string helper = helperPath();
    std::error_code ec;
    if (!std::filesystem::exists(helper, ec)) return false;
    return runCommand(AppConfig::sudoPath(), {"-n", helper, "version"}).status == 0;
}

bool run(const std::vector<std::string>& arguments) {
    std::vector<std::string> args{"-n", helperPath()};
    args.insert(args.end(), arguments.begin(), arguments.end());
    const CommandResult result = runCommand(AppConfig::sudoPath(), args);
    if (result.status == 0) return true;
    SystemLog::write("Duskwell helper " + formatArguments(arguments) + " 실패: " +
                     withoutTrailingBreaks(result.output));
    return false;
}

std::optional<InstallError> install() {
    // The name goes into a sudoers line and a shell command: check it before any prompt.
    const std::string user = services().platform->userName();
    if (!isValidUserName(user)) return InstallError::badUser();
    const auto source = services().platform->resourcePath(resourceName);
    if (!source) return InstallError::missingResource();
    return runAsAdmin(installScript(user, *source),
                      TM("Duskwell가 뚜껑을 닫아도 {machine:이} 잠들지 않도록 전원 설정 권한을 한 번만 요청합니다.",
                         "Duskwell needs permission once to keep your {machine} awake with the lid closed."));
}

std::optional<InstallError> uninstall() {
    // Give sleep back while the helper still exists to do it.
    run({"lid-off"});
    return runAsAdmin("/bin/rm -f " + shellQuote(sudoersPath()) + " " + shellQuote(helperPath()),
                      T("Duskwell 전원 권한을 제거합니다.", "Remove Duskwell power permission."));
}

InstallLayout macLayout() {
    return {"/Library/PrivilegedHelperTools/duskwell-power", "/etc/sudoers.d/duskwell", "wheel",
            "/etc/sudoers.d/owlguard", "/Library/PrivilegedHelperTools/owlguard-power", "/usr/bin/shasum -a 256"};
}

InstallLayout linuxLayout() {
    return {"/usr/local/libexec/duskwell-power", "/etc/sudoers.d/duskwell", "root",
            "/etc/sudoers.d/owlguard", "/usr/local/libexec/owlguard-power", "/usr/bin/sha256sum"};
}

InstallLayout currentLayout() {
#ifdef __APPLE__
    InstallLayout layout = macLayout();
#else
    InstallLayout layout = linuxLayout();
#endif
    layout.helper = helperPath();
    layout.sudoers = sudoersPath();
    return layout;
}

std::string installScript(const std::string& user, const std::string& source) {
    return installScript(currentLayout(), user, source);
}

std::string installScript(const InstallLayout& layout, const std::string& user, const std::string& source) {
    // The helper is copied into a root-owned temporary file and its hash checked there, so
    // what gets installed is exactly what this build shipped, whatever happens to the file
    // beside the user's executable meanwhile. The rule is checked by visudo in a private
    // file before anything is installed; under set -e a failed check stops here. The helper
    // goes in before the rule that allows it. Every path is quoted.
    const std::string owner = "-o root -g " + layout.group;
    return "set -e\n"
           "T=$(/usr/bin/mktemp /tmp/duskwell.XXXXXX)\n"
           "H=$(/usr/bin/mktemp /tmp/duskwell.XXXXXX)\n"
           "/bin/cp " + shellQuote(source) + " \"$H\"\n"
           "[ \"$(" + layout.hashTool + " \"$H\")\" = \"" + layout.helperSha256 + "  $H\" ]\n"
           "/bin/echo " + shellQuote(user + " ALL=(root) NOPASSWD: " + layout.helper) + " > \"$T\"\n"
           "/usr/sbin/visudo -cf \"$T\" >/dev/null\n"
           "/bin/mkdir -p " + shellQuote(folderOf(layout.helper)) + "\n"
           "/usr/bin/install " + owner + " -m 755 \"$H\" " + shellQuote(layout.helper) + "\n"
           "/usr/bin/install " + owner + " -m 440 \"$T\" " + shellQuote(layout.sudoers) + "\n"
           "/bin/rm -f \"$T\" \"$H\" " + shellQuote(layout.formerRule) + " " + shellQuote(layout.formerHelper);
}

std::string adminScriptSource(const std::string& script, const std::string& prompt) {
    // `do shell script` runs one command line: the script's lines joined by "; ".
    std::string joined;
    std::string::size_type begin = 0;
    while (begin <= script.size()) {
        auto end = script.find('\n', begin);
        if (end == std::string::npos) end = script.size();
        if (end > begin) {
            if (!joined.empty()) joined += "; ";
            joined += script.substr(begin, end - begin);
        }
        begin = end + 1;
    }
    const std::string body = replaceAll(replaceAll(joined, "\\", "\\\\"), "\"", "\\\"");
    const std::string label = replaceAll(prompt, "\"", "\\\"");
    return "do shell script \"" + body + "\" with prompt \"" + label + "\" with administrator privileges";
}

bool isValidUserName(const std::string& user) {
    if (user.empty()) return false;
    for (unsigned char c : user) {
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                        c == '.' || c == '_' || c == '-';
        if (!ok) return false;
    }
    return true;
}

std::string formatArguments(const std::vector<std::string>& arguments) {
    std::string out = "[";
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (i > 0) out += ", ";
        out += '"';
        for (char c : arguments[i]) {
            switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default: out += c;
            }
        }
        out += '"';
    }
    return out + "]";
}

std::string shellQuote(const std::string& text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'') out += "'\\''";
        else out += c;
    }
    return out + "'";
}

std::string watchdogScript(int pid, std::optional<std::int64_t> lowPower, std::optional<std::int64_t> powerMode,
                           const std::optional<WatchdogGuard>& guard) {
    const std::string call = "\n" + shellQuote(AppConfig::sudoPath()) + " -n " + shellQuote(helperPath());
    std::string script = "while /bin/kill -0 " + std::to_string(pid) + " 2>/dev/null; do /bin/sleep 3; done";
    if (guard)
        script += "\n[ \"$(/bin/cat " + shellQuote(guard->file) + " 2>/dev/null)\" = " + shellQuote(guard->token) +
                  " ] || exit 0";
    script += call + " lid-off";
    if (lowPower) script += call + " lowpower " + std::to_string(*lowPower);
    if (powerMode) script += call + " powermode " + std::to_string(*powerMode);
    return script;
}

}  // namespace duskwell::PowerHelper

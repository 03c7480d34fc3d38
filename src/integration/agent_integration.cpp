#include "integration/agent_integration.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
#include <system_error>

#include <filesystem>

#include "core/app_config.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/text.h"

namespace duskwell::AgentIntegration {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// Seconds an agent gives our hook. Codex cuts some events' limit to 3 s and warns about it
// at every start, so its entries ask for no more.
int hookTimeout(AgentKind kind) { return kind == AgentKind::codex ? 3 : 5; }

std::string home() { return services().platform->homeDirectory(); }

std::string parseError(const std::string& path) {
    return T("설정 파일 형식을 읽을 수 없습니다: " + path, "Can't parse settings file: " + path);
}

std::string readError(const std::string& path, const std::string& reason) {
    return T("설정 파일을 읽을 수 없습니다: " + path + " (" + reason + ")",
             "Can't read settings file: " + path + " (" + reason + ")");
}

std::string writeError(const std::string& path, const std::string& reason) {
    return T("설정 파일을 저장할 수 없습니다: " + path + " (" + reason + ")",
             "Can't save settings file: " + path + " (" + reason + ")");
}

std::string unsupported(AgentKind kind) {
    const std::string title(kind.title());
    return T(title + "에는 훅을 연결할 수 없습니다.", title + " has no hooks to connect.");
}

std::string errnoText() { return std::generic_category().message(errno); }

// Our entry, alone in its group.
json ownGroup(AgentKind kind) {
    return json{{"hooks", json::array({json{{"type", "command"},
                                            {"command", hookCommand(kind)},
                                            {"timeout", hookTimeout(kind)}}})}};
}

// A group is ours when one of its entries runs our hook, whatever version of the
// command wrote it.
bool isOwnGroup(const json& group) {
    if (!group.is_object()) return false;
    const auto entries = group.find("hooks");
    if (entries == group.end() || !entries->is_array()) return false;
    for (const auto& entry : *entries) {
        if (!entry.is_object()) continue;
        const auto command = entry.find("command");
        if (command != entry.end() && command->is_string() &&
            command->get_ref<const std::string&>().find(marker) != std::string::npos)
            return true;
    }
    return false;
}

// Drops our groups from one event's list; answers how many went.
std::size_t removeOwnGroups(json& groups) {
    if (!groups.is_array()) return 0;
    json kept = json::array();
    std::size_t removed = 0;
    for (auto& group : groups) {
        if (isOwnGroup(group)) ++removed;
        else kept.push_back(std::move(group));
    }
    groups = std::move(kept);
    return removed;
}

// Dotfile managers link settings files into a repository; write through the link so
// that it stays a link.
fs::path resolveLinks(const fs::path& path) {
    fs::path p = path;
    for (int i = 0; i < 16; ++i) {
        std::error_code ec;
        if (!fs::is_symlink(fs::symlink_status(p, ec))) break;
        const fs::path target = fs::read_symlink(p, ec);
        if (ec) break;
        p = target.is_absolute() ? target : p.parent_path() / target;
    }
    return p;
}

std::string randomSuffix() {
    std::random_device device;
    std::ostringstream out;
    out << std::hex << device() << device();
    return out.str();
}

// Writes `text` to `target` through a temporary file in the same folder and a rename,
// so that a reader sees the old file or the new one, never half of either.
std::optional<std::string> writeAtomically(const fs::path& target, const std::string& text,
                                           const std::string& shownPath) {
    std::error_code ec;
    const auto oldStatus = fs::status(target, ec);
    const bool existed = fs::exists(oldStatus);
    const fs::path tmp = target.parent_path() / ("." + target.filename().string() + ".duskwell-" + randomSuffix() + ".tmp");
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) return writeError(shownPath, errnoText());
        // Settings files can hold tokens: private until the final mode is in place.
        fs::permissions(tmp, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::replace, ec);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.flush();
        if (!out) {
            const std::string reason = errnoText();
            out.close();
            fs::remove(tmp, ec);
            return writeError(shownPath, reason);
        }
    }
    const fs::perms mode = existed ? oldStatus.permissions()
                                   : (fs::perms::owner_read | fs::perms::owner_write |
                                      fs::perms::group_read | fs::perms::others_read);
    fs::permissions(tmp, mode, fs::perm_options::replace, ec);
    if (ec) {
        const std::string reason = ec.message();
        fs::remove(tmp, ec);
        return writeError(shownPath, reason);
    }
    fs::rename(tmp, target, ec);
    if (ec) {
        const std::string reason = ec.message();
        std::error_code ignored;
        fs::remove(tmp, ignored);
        return writeError(shownPath, reason);
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> configFile(AgentKind kind) {
    switch (kind.value()) {
    case AgentKind::claude: return home() + "/.claude/settings.json";
    case AgentKind::codex: return home() + "/.codex/hooks.json";
    default: return std::nullopt;
    }
}

std::vector<std::string> events(AgentKind kind) {
    // Every event that changes what the agent does: a session at its prompt, a turn and its
    // tools, a question to the user and the events that end it, the end of a turn or of the
    // session. Claude Code rejects hook names it does not know; Codex ignores them.
    if (kind == AgentKind::claude)
        return {"SessionStart", "UserPromptSubmit", "PreToolUse", "PermissionRequest", "PostToolUse",
                "PostToolUseFailure", "Notification", "Stop", "StopFailure", "SessionEnd"};
    return {"SessionStart", "UserPromptSubmit", "PreToolUse", "PermissionRequest", "PostToolUse",
            "Stop", "Interrupt", "SessionEnd"};
}

std::string hookCommand(AgentKind kind) {
    return AppConfig::hookScript() + " " + std::string(kind.rawValue());
}

bool isAvailable(AgentKind kind) {
    const auto file = configFile(kind);
    if (!file) return false;
    std::error_code ec;
    return fs::is_directory(fs::path(*file).parent_path(), ec);
}

bool isInstalled(AgentKind kind) {
    const auto file = configFile(kind);
    if (!file) return false;
    std::ifstream in(*file, std::ios::binary);
    if (!in) return false;
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return !in.bad() && text.find(marker) != std::string::npos;
}

namespace {

// Codex keys its trust entries by the event's snake_case name: PreToolUse -> pre_tool_use.
std::string snakeCase(std::string_view event) {
    std::string out;
    for (const char c : event) {
        if (c >= 'A' && c <= 'Z') {
            if (!out.empty()) out.push_back('_');
            out.push_back(static_cast<char>(c - 'A' + 'a'));
        } else {
            out.push_back(c);
        }
    }
    return out;
}

}  // namespace

bool trustsOwnHooks(const json& hooks, const std::string& hooksPath, const std::string& configToml) {
    // Trusted keys: the quoted name of each [hooks.state."<file>:<event>:<group>:<entry>"]
    // table that holds a trusted_hash.
    std::set<std::string> trusted;
    std::string table;
    for (const auto& raw : Text::split(configToml, '\n')) {
        const std::string line = Text::trim(raw);
        if (line.rfind('[', 0) == 0) {
            table.clear();
            constexpr std::string_view head = "[hooks.state.\"";
            if (line.rfind(head, 0) == 0) {
                const auto close = line.find('"', head.size());
                if (close != std::string::npos) table = line.substr(head.size(), close - head.size());
            }
        } else if (!table.empty() && line.rfind("trusted_hash", 0) == 0) {
            trusted.insert(table);
        }
    }
    const auto events = hooks.find("hooks");
    if (events == hooks.end() || !events->is_object()) return true;
    // Only the events Codex knows get a trust entry; it ignores other keys.
    for (const auto& event : AgentIntegration::events(AgentKind::codex)) {
        const auto found = events->find(event);
        if (found == events->end() || !found->is_array()) continue;
        const json& groups = *found;
        for (std::size_t g = 0; g < groups.size(); ++g) {
            const auto entries = groups[g].find("hooks");
            if (!groups[g].is_object() || entries == groups[g].end() || !entries->is_array()) continue;
            for (std::size_t e = 0; e < entries->size(); ++e) {
                const auto command = (*entries)[e].find("command");
                if (!(*entries)[e].is_object() || command == (*entries)[e].end() || !command->is_string() ||
                    command->get_ref<const std::string&>().find(marker) == std::string::npos)
                    continue;
                const std::string key =
                    hooksPath + ":" + snakeCase(event) + ":" + std::to_string(g) + ":" + std::to_string(e);
                if (!trusted.count(key)) return false;
            }
        }
    }
    return true;
}

bool awaitsTrust(AgentKind kind) {
    if (kind != AgentKind::codex || !isInstalled(kind)) return false;
    const auto file = configFile(kind);
    json hooks;
    if (!file || load(*file, hooks)) return false;
    std::ifstream in(home() + "/.codex/config.toml", std::ios::binary);
    const std::string toml = in ? std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())
                                : std::string();
    return !trustsOwnHooks(hooks, *file, toml);
}

std::optional<std::string> trustHint(AgentKind kind) {
    if (kind != AgentKind::codex) return std::nullopt;
    return T("다음에 Codex를 열면 \"Hooks need review\"가 한 번 표시됩니다. Trust를 선택해야 Duskwell 훅이 동작합니다.",
             "The next time you open Codex it shows \"Hooks need review\" once: choose Trust, or "
             "Codex will not run Duskwell's hook.");
}

std::optional<std::string> load(const std::string& path, json& settings) {
    std::error_code ec;
    const auto status = fs::status(path, ec);
    if (!fs::exists(status)) {
        if (ec && ec != std::errc::no_such_file_or_directory) return readError(path, ec.message());
        settings = json::object();
        return std::nullopt;
    }
    if (fs::is_directory(status)) return readError(path, std::make_error_code(std::errc::is_a_directory).message());
    std::ifstream in(path, std::ios::binary);
    if (!in) return readError(path, errnoText());
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) return readError(path, errnoText());
    // A file that was created but never filled holds no settings yet.
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        settings = json::object();
        return std::nullopt;
    }
    json parsed = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded() || !parsed.is_object()) return parseError(path);
    settings = std::move(parsed);
    return std::nullopt;
}

std::optional<std::string> save(const json& settings, const std::string& path) {
    std::error_code ec;
    const fs::path file(path);
    fs::create_directories(file.parent_path(), ec);
    if (ec) return writeError(path, ec.message());

    // One backup, ever: it keeps the file as it was before we first touched it.
    const fs::path backup(path + ".duskwell-backup");
    if (fs::exists(file, ec) && !fs::exists(fs::symlink_status(backup, ec))) {
        fs::copy_file(file, backup, fs::copy_options::none, ec);
        if (ec) {
            return T("설정 파일을 백업할 수 없습니다: " + path + " (" + ec.message() + ")",
                     "Can't back up settings file: " + path + " (" + ec.message() + ")");
        }
    }

    std::string text;
    try {
        text = settings.dump(2, ' ', /*ensure_ascii=*/false, json::error_handler_t::replace) + "\n";
    } catch (const std::exception& e) {
        return writeError(path, e.what());
    }
    return writeAtomically(resolveLinks(file), text, path);
}

std::optional<std::string> install(AgentKind kind) {
    const auto file = configFile(kind);
    if (!file) return unsupported(kind);
    if (auto error = installScript()) return error;

    json settings;
    if (auto error = load(*file, settings)) return error;
    json hooks = json::object();
    if (const auto it = settings.find("hooks"); it != settings.end() && it->is_object()) hooks = *it;

    for (const auto& event : events(kind)) {
        json groups = json::array();
        if (const auto it = hooks.find(event); it != hooks.end() && it->is_array()) groups = *it;
        removeOwnGroups(groups);  // reinstalling replaces, never duplicates
        groups.push_back(ownGroup(kind));
        hooks[event] = std::move(groups);
    }
    settings["hooks"] = std::move(hooks);
    return save(settings, *file);
}

std::optional<std::string> uninstall(AgentKind kind) {
    const auto file = configFile(kind);
    if (!file) return unsupported(kind);
    std::error_code ec;
    if (!fs::exists(*file, ec)) return std::nullopt;  // nothing to remove, nothing to create

    json settings;
    if (auto error = load(*file, settings)) return error;
    const auto it = settings.find("hooks");
    if (it == settings.end() || !it->is_object()) return std::nullopt;

    json& hooks = *it;
    std::vector<std::string> emptied;
    std::size_t removed = 0;
    // Every event, not only today's list: an older version may have hooked others.
    for (auto entry : hooks.items()) {
        json& groups = entry.value();
        const std::size_t n = removeOwnGroups(groups);
        removed += n;
        if (n > 0 && groups.empty()) emptied.push_back(entry.key());
    }
    if (removed == 0) return std::nullopt;  // leave the user's file exactly as it is
    for (const auto& event : emptied) hooks.erase(event);
    if (hooks.empty()) settings.erase("hooks");
    return save(settings, *file);
}

std::optional<std::string> installScript() {
    std::error_code ec;
    const std::string sessions = AppConfig::sessionsDir();
    fs::create_directories(sessions, ec);
    if (ec) {
        return T("폴더를 만들 수 없습니다: " + sessions + " (" + ec.message() + ")",
                 "Can't create folder: " + sessions + " (" + ec.message() + ")");
    }
    const auto source = services().platform->resourcePath("duskwell-hook");
    if (!source || !fs::is_regular_file(*source, ec))
        return T("앱 번들에 훅 스크립트가 없습니다.", "Hook script missing from the app.");

    const auto failed = [](const std::string& reason) -> std::optional<std::string> {
        return T("훅 프로그램을 설치할 수 없습니다: " + reason, "Can't install the hook program: " + reason);
    };
    // Copy beside the old program and rename over it: an agent running the hook at this
    // moment finds either version, never a half-copied file.
    const fs::path target(AppConfig::hookScript());
    const fs::path fresh(target.string() + ".new");
    fs::remove(fresh, ec);
    fs::copy_file(*source, fresh, fs::copy_options::overwrite_existing, ec);
    if (ec) return failed(ec.message());
    fs::permissions(fresh,
                    fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                        fs::perms::others_read | fs::perms::others_exec,
                    fs::perm_options::replace, ec);
    if (!ec) fs::rename(fresh, target, ec);
    if (ec) {
        const std::string reason = ec.message();
        std::error_code ignored;
        fs::remove(fresh, ignored);
        return failed(reason);
    }
    return std::nullopt;
}

}  // namespace duskwell::AgentIntegration

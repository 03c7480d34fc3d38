#include "integration/agent_integration.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <set>
#include <string_view>
#include <system_error>

#include <filesystem>

#include "commands/atomic_file.h"
#include "core/app_config.h"
#include "core/localization.h"
#include "core/platform.h"
#include "core/services.h"
#include "core/strict_json.h"
#include "core/text.h"
#include "integration/opencode_plugin.h"

namespace duskwell::AgentIntegration {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// How long an agent gives our hook: seconds for Claude Code and Codex, milliseconds for
// Gemini CLI. Codex cuts some events' limit to 3 s and warns about it at every start, so its
// entries ask for no more.
int hookTimeout(AgentKind kind) {
    switch (kind.value()) {
    case AgentKind::codex: return 3;
    case AgentKind::gemini: return 5000;
    default: return 5;
    }
}

std::string home() { return services().platform->homeDirectory(); }
std::string opencodeFolder() { return services().platform->configDirectory() + "/opencode"; }

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

// Ours: a command that runs the program at the marker path, whatever home or version wrote
// it. A user's own script under "~/.duskwell/hooks/" is not ours.
bool isOwnCommand(std::string_view command) {
    const std::string_view tail(marker);
    for (auto at = command.find(tail); at != std::string_view::npos; at = command.find(tail, at + 1)) {
        const auto end = at + tail.size();
        if (end == command.size() || command[end] == ' ' || command[end] == '\t' ||
            command[end] == '"' || command[end] == '\'')
            return true;
    }
    return false;
}

bool isOwnEntry(const json& entry) {
    if (!entry.is_object()) return false;
    const auto command = entry.find("command");
    return command != entry.end() && command->is_string() && isOwnCommand(command->get_ref<const std::string&>());
}

// Drops our entries from one event's groups, and a group that held nothing else; the
// user's entries beside ours stay where they are. Answers how many entries went.
std::size_t removeOwnEntries(json& groups) {
    if (!groups.is_array()) return 0;
    json kept = json::array();
    std::size_t removed = 0;
    for (auto& group : groups) {
        const auto entries = group.is_object() ? group.find("hooks") : group.end();
        if (group.is_object() && entries != group.end() && entries->is_array()) {
            json rest = json::array();
            for (auto& entry : *entries)
                if (!isOwnEntry(entry)) rest.push_back(std::move(entry));
            const std::size_t n = entries->size() - rest.size();
            removed += n;
            if (n > 0 && rest.empty()) continue;
            *entries = std::move(rest);
        }
        kept.push_back(std::move(group));
    }
    groups = std::move(kept);
    return removed;
}

// A part of the file we would have to change but cannot read the way the agents do: we
// leave the file alone rather than overwrite what the user wrote.
std::string notUnderstood(const std::string& path, const std::string& what) {
    return T("설정 파일을 바꾸지 않았습니다: " + path + " (" + what + "의 형식을 알 수 없습니다)",
             "Left settings file unchanged: " + path + " (" + what + " is not in a form Duskwell understands)");
}

bool mentionsMarker(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace).find(marker) != std::string::npos;
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

// A `//` or `/*` outside every string: JSON with comments, which no JSON parser accepts.
bool hasComments(std::string_view text) {
    bool inString = false;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '/' && (text[i + 1] == '/' || text[i + 1] == '*')) {
            return true;
        }
    }
    return false;
}

std::optional<std::string> readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) return std::nullopt;
    return text;
}

// OpenCode's plugin is a file of ours as a whole: written anew on every connect, removed
// on disconnect. A file of that name that we did not write is the user's and stays.
std::optional<std::string> installPlugin(const std::string& path) {
    const std::string text = OpencodePlugin::source(AppConfig::hookScript());
    std::error_code ec;
    if (fs::exists(fs::symlink_status(path, ec))) {
        const auto old = readText(path);
        if (!old) return readError(path, errnoText());
        if (*old == text) return std::nullopt;
        if (old->find(marker) == std::string::npos)
            return T("파일을 바꾸지 않았습니다: " + path + " (Duskwell이 만들지 않은 플러그인입니다)",
                     "Left file unchanged: " + path + " (a plugin Duskwell did not write)");
    }
    if (auto error = createPrivateDirectories(fs::path(path).parent_path().string())) return writeError(path, *error);
    if (auto error = replaceFile(resolveLinks(path).string(), text, 0644, ExistingFile::replace))
        return writeError(path, *error);
    return std::nullopt;
}

std::optional<std::string> uninstallPlugin(const std::string& path) {
    const auto old = readText(path);
    if (!old || old->find(marker) == std::string::npos) return std::nullopt;
    std::error_code ec;
    if (!fs::remove(path, ec) && ec)
        return T("파일을 지울 수 없습니다: " + path + " (" + ec.message() + ")",
                 "Can't remove file: " + path + " (" + ec.message() + ")");
    return std::nullopt;
}

}  // namespace

std::optional<std::string> configFile(AgentKind kind) {
    switch (kind.value()) {
    case AgentKind::claude: return home() + "/.claude/settings.json";
    case AgentKind::codex: return home() + "/.codex/hooks.json";
    case AgentKind::gemini: return home() + "/.gemini/settings.json";
    case AgentKind::opencode: return opencodeFolder() + "/plugins/duskwell.js";
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
    if (kind == AgentKind::codex)
        return {"SessionStart", "UserPromptSubmit", "PreToolUse", "PermissionRequest", "PostToolUse",
                "Stop", "Interrupt", "SessionEnd"};
    // Gemini CLI: no PreCompress (it fires inside every turn anyway, and a manual /compress
    // outside one would look like work), no BeforeToolSelection or AfterModel (each turn has
    // BeforeModel already). Its only notification is the approval prompt.
    if (kind == AgentKind::gemini)
        return {"SessionStart", "BeforeAgent", "BeforeModel", "BeforeTool", "Notification", "AfterTool",
                "AfterAgent", "SessionEnd"};
    return {};  // OpenCode: our plugin picks its own events
}

std::string hookCommand(AgentKind kind) {
    return AppConfig::hookScript() + " " + std::string(kind.rawValue());
}

bool isAvailable(AgentKind kind) {
    const auto file = configFile(kind);
    if (!file) return false;
    std::error_code ec;
    // OpenCode's plugin folder is ours to create; its settings folder tells it is set up.
    const fs::path folder = kind == AgentKind::opencode ? fs::path(opencodeFolder()) : fs::path(*file).parent_path();
    return fs::is_directory(folder, ec);
}

bool isInstalled(AgentKind kind) {
    const auto file = configFile(kind);
    const auto text = file ? readText(*file) : std::nullopt;
    return text && text->find(marker) != std::string::npos;
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
                if (!isOwnEntry((*entries)[e])) continue;
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
    return !trustsOwnHooks(hooks, *file, readText(home() + "/.codex/config.toml").value_or(""));
}

std::optional<std::string> connectHint(AgentKind kind) {
    switch (kind.value()) {
    case AgentKind::codex:
        return T("다음에 Codex를 열면 \"Hooks need review\"가 한 번 표시됩니다. Trust를 선택해야 Duskwell 훅이 동작합니다.",
                 "The next time you open Codex it shows \"Hooks need review\" once: choose Trust, or "
                 "Codex will not run Duskwell's hook.");
    case AgentKind::gemini:
        return T("Gemini CLI는 신뢰한 폴더에서만 훅을 실행합니다. 폴더를 신뢰하지 않으면 그곳의 세션은 활동으로 추정합니다.",
                 "Gemini CLI runs hooks only in folders you trust; in other folders Duskwell estimates "
                 "its sessions from activity.");
    case AgentKind::opencode:
        return T("OpenCode는 시작할 때 플러그인을 읽습니다. 이미 열려 있는 OpenCode는 다시 시작하세요.",
                 "OpenCode loads plugins when it starts: restart any OpenCode that is already open.");
    default: return std::nullopt;
    }
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
    // The file goes back to the agent: a number we would round, or nesting we could not
    // copy, means we do not touch it at all.
    StrictJson parsed = parseStrictJson(text, JsonNumbers::exact);
    switch (parsed.problem) {
    case JsonProblem::none: break;
    case JsonProblem::syntax:
        // Gemini CLI reads its settings with comments; writing the file back would drop them.
        return hasComments(text) ? notUnderstood(path, T("주석", "a comment")) : parseError(path);
    case JsonProblem::tooDeep: return notUnderstood(path, T("깊이 중첩된 값", "deeply nested data"));
    case JsonProblem::inexactNumber: return notUnderstood(path, T("정밀한 숫자", "a long or large number"));
    }
    if (!parsed.value.is_object()) return parseError(path);
    settings = std::move(parsed.value);
    return std::nullopt;
}

std::optional<std::string> save(const json& settings, const std::string& path) {
    std::error_code ec;
    const fs::path file(path);
    if (auto error = createPrivateDirectories(file.parent_path().string())) return writeError(path, *error);

    // One backup, ever: it keeps the file as it was before we first touched it.
    const fs::path backup(path + ".duskwell-backup");
    if (fs::exists(file, ec) && !fs::exists(fs::symlink_status(backup, ec))) {
        // Copied through the same private route as the file itself: it holds the same tokens.
        std::ifstream in(file, std::ios::binary);
        const std::string original((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const auto mode = static_cast<unsigned>(fs::status(file, ec).permissions() & fs::perms::mask);
        if (!in || in.bad()) ec = std::make_error_code(std::errc::io_error);
        else if (auto error = replaceFile(backup.string(), original, ec ? 0600 : mode, ExistingFile::replace))
            ec = std::make_error_code(std::errc::io_error);
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
    // Settings files can hold tokens: a new one is private, an existing one keeps its mode
    // and owner.
    if (auto error = replaceFile(resolveLinks(file).string(), text, 0600, ExistingFile::keep))
        return writeError(path, *error);
    return std::nullopt;
}

std::optional<std::string> install(AgentKind kind) {
    const auto file = configFile(kind);
    if (!file) return unsupported(kind);
    if (auto error = installScript()) return error;
    if (kind == AgentKind::opencode) return installPlugin(*file);

    json settings;
    if (auto error = load(*file, settings)) return error;
    json hooks = json::object();
    if (const auto it = settings.find("hooks"); it != settings.end()) {
        if (!it->is_object()) return notUnderstood(*file, "\"hooks\"");
        hooks = *it;
    }
    for (const auto& event : events(kind)) {
        const auto it = hooks.find(event);
        if (it != hooks.end() && !it->is_array()) return notUnderstood(*file, "\"hooks\"." + event);
    }

    for (const auto& event : events(kind)) {
        json groups = json::array();
        if (const auto it = hooks.find(event); it != hooks.end()) groups = *it;
        removeOwnEntries(groups);  // reinstalling replaces, never duplicates
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
    if (kind == AgentKind::opencode) return uninstallPlugin(*file);

    json settings;
    if (auto error = load(*file, settings)) return error;
    const auto it = settings.find("hooks");
    if (it == settings.end()) return std::nullopt;
    // Something of ours inside a shape we cannot edit: say so rather than claim success.
    if (!it->is_object()) {
        if (mentionsMarker(*it)) return notUnderstood(*file, "\"hooks\"");
        return std::nullopt;
    }

    json& hooks = *it;
    std::vector<std::string> emptied;
    std::size_t removed = 0;
    // Every event, not only today's list: an older version may have hooked others.
    for (auto entry : hooks.items()) {
        json& groups = entry.value();
        if (!groups.is_array()) {
            if (mentionsMarker(groups)) return notUnderstood(*file, "\"hooks\"." + entry.key());
            continue;
        }
        const std::size_t n = removeOwnEntries(groups);
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
    if (auto error = createPrivateDirectories(sessions)) {
        return T("폴더를 만들 수 없습니다: " + sessions + " (" + *error + ")",
                 "Can't create folder: " + sessions + " (" + *error + ")");
    }
    const auto source = services().platform->resourcePath("duskwell-hook");
    if (!source || !fs::is_regular_file(*source, ec))
        return T("앱 번들에 훅 스크립트가 없습니다.", "Hook script missing from the app.");

    const auto failed = [](const std::string& reason) -> std::optional<std::string> {
        return T("훅 프로그램을 설치할 수 없습니다: " + reason, "Can't install the hook program: " + reason);
    };
    // Written beside the old program under a name of its own (connects may run at once) and
    // renamed over it: an agent running the hook at this moment finds either version, never
    // a half-copied file.
    std::ifstream in(*source, std::ios::binary);
    const std::string program((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in || in.bad()) return failed(errnoText());
    if (auto error = replaceFile(AppConfig::hookScript(), program, 0755, ExistingFile::replace)) return failed(*error);
    return std::nullopt;
}

}  // namespace duskwell::AgentIntegration

#include "agents/process_shape.h"

#include <array>

namespace duskwell {
namespace {

std::string_view baseName(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// npm ships native agents as "<name>.exe" on every platform.
std::string_view withoutExe(std::string_view name) {
    constexpr std::string_view exe = ".exe";
    if (name.size() > exe.size() && name.substr(name.size() - exe.size()) == exe)
        name.remove_suffix(exe.size());
    return name;
}

bool hasWord(std::string_view args, std::string_view word) {
    size_t pos = 0;
    while ((pos = args.find(word, pos)) != std::string_view::npos) {
        const bool startOk = pos == 0 || args[pos - 1] == ' ';
        const size_t end = pos + word.size();
        const bool endOk = end == args.size() || args[end] == ' ';
        if (startOk && endOk) return true;
        pos = end;
    }
    return false;
}

// codex-linux-sandbox is the codex binary started under another argv[0]; the kernel cuts
// its name to 15 bytes.
bool isSandboxName(std::string_view name) {
    return name == "codex-linux-sandbox" || name == "codex-linux-san";
}

}  // namespace

std::string_view firstWord(std::string_view args) {
    const auto blank = args.find(' ');
    return blank == std::string_view::npos ? args : args.substr(0, blank);
}

std::optional<ProcessMatch> matchProcess(const ProcessInfo& p) {
    const std::array<std::string_view, 3> names = {
        withoutExe(baseName(p.exe)), withoutExe(baseName(p.comm)), withoutExe(baseName(firstWord(p.args)))};
    for (const auto name : names)
        if (isSandboxName(name)) return ProcessMatch{AgentKind::codex, ProcessRole::sandbox};

    std::optional<AgentKind> kind;
    for (const auto name : names) {
        if (name.empty()) continue;
        if ((kind = AgentKind::match(name, p.args))) break;
    }
    if (!kind) return std::nullopt;
    // `codex app-server` serves the UI and outlives it; it is the session's, not an agent.
    if (*kind == AgentKind::codex && hasWord(p.args, "app-server"))
        return ProcessMatch{*kind, ProcessRole::daemon};
    return ProcessMatch{*kind, ProcessRole::agent};
}

bool isHookProcess(const ProcessInfo& p) {
    return p.args.find("/.duskwell/hook") != std::string::npos;
}

}  // namespace duskwell

#include "agents/agent_kind.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace duskwell {
namespace {

struct Row {
    std::string_view raw, title, symbol, tint;
};

constexpr Row kRows[AgentKind::caseCount] = {
    {"claude", "Claude Code", "asterisk", "claude"},
    {"codex", "Codex", "chevron.left.forwardslash.chevron.right", "codex"},
    {"gemini", "Gemini CLI", "sparkle", "gemini"},
    {"aider", "Aider", "terminal.fill", "gray"},
    {"opencode", "OpenCode", "terminal.fill", "gray"},
    {"goose", "Goose", "terminal.fill", "gray"},
    {"cursor", "Cursor Agent", "terminal.fill", "gray"},
    {"ollama", "Ollama", "cpu", "cyan"},
    {"lmstudio", "LM Studio", "cube.fill", "violet"},
    {"llamacpp", "llama.cpp", "bolt.horizontal.fill", "cyan"},
    {"mlx", "MLX", "brain", "mint"},
    {"comfyui", "ComfyUI", "photo.stack", "mint"},
    {"vllm", "vLLM", "server.rack", "cyan"},
};

bool startsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }
bool contains(std::string_view s, std::string_view p) { return s.find(p) != std::string_view::npos; }

}  // namespace

std::array<AgentKind, AgentKind::caseCount> AgentKind::allCases() {
    return {claude, codex, gemini, aider, opencode, goose, cursor,
            ollama, lmstudio, llamacpp, mlx, comfyui, vllm};
}

std::optional<AgentKind> AgentKind::fromRawValue(std::string_view raw) {
    for (int i = 0; i < caseCount; ++i)
        if (kRows[i].raw == raw) return AgentKind(static_cast<Value>(i));
    return std::nullopt;
}

std::string_view AgentKind::rawValue() const { return kRows[index()].raw; }
std::string_view AgentKind::title() const { return kRows[index()].title; }
// Counted from the first runner, so a kind appended later is not a runner by accident.
bool AgentKind::isLocalModel() const { return static_cast<unsigned>(index() - 7) < 6u; }
bool AgentKind::supportsHooks() const {
    return value_ == claude || value_ == codex || value_ == gemini || value_ == opencode;
}
std::string_view AgentKind::symbol() const { return kRows[index()].symbol; }
std::string_view AgentKind::tint() const {
    if (index() < 0 || index() >= caseCount) return "gray";
    return kRows[index()].tint;
}

std::optional<AgentKind> AgentKind::match(std::string_view exe, std::string_view args) {
    const auto slash = exe.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? exe : exe.substr(slash + 1);

    if (name == "claude") return claude;
    if (name == "codex") return codex;
    if (name == "gemini") return gemini;
    if (name == "aider") return aider;
    if (name == "opencode") return opencode;
    if (name == "goose") return goose;
    if (name == "cursor-agent") return cursor;
    if (name == "LM Studio" || name == "lms") return lmstudio;
    if (name == "llama-server" || name == "llama-cli" || name == "llama-run") return llamacpp;
    if (startsWith(name, "ollama")) return ollama;

    const bool jsHost = startsWith(name, "node") || startsWith(name, "bun");
    const bool pythonHost = startsWith(name, "python") || startsWith(name, "Python") || name == "uv";
    // Every process of every scan comes through here: only script hosts pay for the copy.
    if (!jsHost && !pythonHost) return std::nullopt;
    std::string largs(args);
    std::transform(largs.begin(), largs.end(), largs.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });

    if (jsHost) {
        if (contains(largs, "gemini-cli")) return gemini;
        if (contains(largs, "/bin/gemini")) return gemini;
        if (contains(largs, "/.bin/gemini")) return gemini;  // a local npm install
        if (contains(largs, "@anthropic-ai/claude-code")) return claude;
        if (contains(largs, "@openai/codex")) return codex;
    }
    if (!pythonHost) return std::nullopt;
    if (contains(largs, "mlx_lm") || contains(largs, "mlx-lm") || contains(largs, "mlx_vlm")) return mlx;
    if (contains(largs, "comfyui")) return comfyui;
    if (contains(largs, "vllm")) return vllm;
    if (contains(largs, "/aider")) return aider;
    return std::nullopt;
}

}  // namespace duskwell

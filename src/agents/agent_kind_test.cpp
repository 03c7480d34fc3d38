#include "agents/agent_kind.h"

#include <gtest/gtest.h>

namespace duskwell {
namespace {

std::optional<AgentKind> m(std::string_view exe, std::string_view args = "") { return AgentKind::match(exe, args); }

TEST(AgentKindCatalogue, RawValuesRoundTripAndTheirLookupIsCaseSensitive) {
    for (const auto kind : AgentKind::allCases()) EXPECT_EQ(AgentKind::fromRawValue(kind.rawValue()), kind);
    EXPECT_EQ(AgentKind::fromRawValue("llamacpp"), AgentKind::llamacpp);
    EXPECT_FALSE(AgentKind::fromRawValue("Claude"));
    EXPECT_FALSE(AgentKind::fromRawValue("llama.cpp"));
    EXPECT_FALSE(AgentKind::fromRawValue(""));
}

TEST(AgentKindMatch, ExactWholeCaseSensitiveNamesWinWhateverTheArguments) {
    EXPECT_EQ(m("/opt/homebrew/bin/claude", "claude --resume"), AgentKind::claude);
    EXPECT_EQ(m("claude", "node something @openai/codex"), AgentKind::claude);
    EXPECT_EQ(m("/usr/local/bin/codex"), AgentKind::codex);
    EXPECT_EQ(m("gemini"), AgentKind::gemini);
    EXPECT_EQ(m("/x/aider"), AgentKind::aider);
    EXPECT_EQ(m("/x/opencode"), AgentKind::opencode);
    EXPECT_EQ(m("/x/goose"), AgentKind::goose);
    EXPECT_EQ(m("/x/cursor-agent"), AgentKind::cursor);
    EXPECT_EQ(m("/Applications/LM Studio.app/Contents/MacOS/LM Studio"), AgentKind::lmstudio);
    EXPECT_EQ(m("/usr/local/bin/lms"), AgentKind::lmstudio);
    EXPECT_EQ(m("llama-server"), AgentKind::llamacpp);
    EXPECT_EQ(m("llama-cli"), AgentKind::llamacpp);
    EXPECT_EQ(m("llama-run"), AgentKind::llamacpp);
    // Names are case-sensitive and whole; only the last path component counts.
    EXPECT_FALSE(m("/Applications/Claude.app/Contents/MacOS/Claude"));
    EXPECT_FALSE(m("claude-helper"));
    EXPECT_FALSE(m("CODEX"));
    EXPECT_FALSE(m("cursor"));
    EXPECT_FALSE(m("llama-bench"));
    EXPECT_FALSE(m("lm studio"));
    EXPECT_FALSE(m("/home/claude/bin/bash"));
    // Ollama is a prefix.
    EXPECT_EQ(m("/usr/local/bin/ollama"), AgentKind::ollama);
    EXPECT_EQ(m("/Applications/Ollama.app/Contents/Resources/ollama_llama_server"), AgentKind::ollama);
    EXPECT_FALSE(m("Ollama"));
}

TEST(AgentKindMatch, JavaScriptHostsByPackageName) {
    const std::string node = "/Users/x/.nvm/versions/node/22/bin/node";
    EXPECT_EQ(m(node, "node /usr/local/lib/node_modules/@anthropic-ai/claude-code/cli.js"), AgentKind::claude);
    EXPECT_EQ(m(node, "node /usr/local/lib/node_modules/@openai/codex/bin/codex.js"), AgentKind::codex);
    EXPECT_EQ(m(node, "node /usr/local/lib/node_modules/@google/gemini-cli/dist/index.js"), AgentKind::gemini);
    EXPECT_EQ(m("bun", "bun /home/u/.bun/bin/gemini"), AgentKind::gemini);
    EXPECT_EQ(m("bun", "bun x @ANTHROPIC-AI/Claude-Code"), AgentKind::claude);  // arguments lower-cased
    EXPECT_EQ(m("node22", "node @openai/codex"), AgentKind::codex);
    EXPECT_FALSE(m("node", "node server.js"));
    // A JavaScript host is no Python host.
    EXPECT_FALSE(m("node", "node mlx_lm vllm /aider"));
    // Gemini before Claude when both appear.
    EXPECT_EQ(m("node", "node gemini-cli @anthropic-ai/claude-code"), AgentKind::gemini);
    // The package names mean nothing to other programs.
    EXPECT_FALSE(m("deno", "deno @anthropic-ai/claude-code"));
}

TEST(AgentKindMatch, PythonHostsIncludeCapitalisedPythonAndUv) {
    EXPECT_EQ(m("/Library/Frameworks/Python.framework/Versions/3.12/Resources/Python.app/Contents/MacOS/Python",
                "Python -m MLX_LM.server --model x"),
              AgentKind::mlx);
    EXPECT_EQ(m("python3", "python3 -m mlx-lm.generate"), AgentKind::mlx);
    EXPECT_EQ(m("python3.11", "python -m mlx_vlm.server"), AgentKind::mlx);
    EXPECT_EQ(m("uv", "uv run vllm serve meta/llama"), AgentKind::vllm);
    EXPECT_EQ(m("python3", "python main.py --listen # ComfyUI"), AgentKind::comfyui);
    EXPECT_FALSE(m("uvx", "uvx vllm serve"));
    EXPECT_FALSE(m("ruby", "ruby mlx_lm"));
    // Rule order, and the aider path trap.
    EXPECT_EQ(m("python3.12", "python3.12 /usr/local/bin/aider"), AgentKind::aider);
    EXPECT_FALSE(m("python3.12", "python3.12 -m aider"));
    EXPECT_EQ(m("python3", "python /srv/ComfyUI/main.py --vllm-bridge"), AgentKind::comfyui);
    EXPECT_EQ(m("python3", "python -m vllm.entrypoints --tokenizer mlx_lm"), AgentKind::mlx);
    EXPECT_EQ(m("python3", "python /x/vllm/serve.py /aider"), AgentKind::vllm);
    EXPECT_FALSE(m("python3", "python -c 'print(1)'"));
}

}  // namespace
}  // namespace duskwell

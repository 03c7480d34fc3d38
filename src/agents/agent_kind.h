#pragma once
#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace duskwell {

// The agents and local model runners the product watches for, in catalogue order.
class AgentKind {
public:
    enum Value : int {
        claude, codex, gemini, aider, opencode, goose, cursor,
        ollama, lmstudio, llamacpp, mlx, comfyui, vllm
    };
    static constexpr int caseCount = 13;

    constexpr AgentKind(Value v) : value_(v) {}  // NOLINT: implicit by design
    constexpr Value value() const { return value_; }
    constexpr int index() const { return static_cast<int>(value_); }

    static std::array<AgentKind, caseCount> allCases();
    static std::optional<AgentKind> fromRawValue(std::string_view raw);
    // Classifies one process from its executable (`comm`) and whole command line.
    static std::optional<AgentKind> match(std::string_view exe, std::string_view args);

    std::string_view rawValue() const;
    std::string_view title() const;
    bool isLocalModel() const;
    bool supportsHooks() const;
    std::string_view symbol() const;
    // Palette name of the row tint: "claude", "cyan", "violet", "mint", "codex", "gemini",
    // or "gray" (the platform's standard gray).
    std::string_view tint() const;

    constexpr bool operator==(const AgentKind&) const = default;
    constexpr auto operator<=>(const AgentKind&) const = default;

private:
    Value value_;
};

}  // namespace duskwell

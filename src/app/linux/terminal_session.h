#pragma once
#include <optional>
#include <string>
#include <utility>

namespace duskwell {

// The dashboard's hold on the terminal: raw single-key input (no echo, no line buffering;
// Ctrl-C still raises SIGINT), the alternate screen and a hidden cursor. Everything is put
// back when the session ends, and also on the crash paths that still run code: a fatal
// signal (SEGV, ABRT, BUS, FPE, ILL) and std::terminate write the restoring sequence and
// termios before the process dies.
class TerminalSession {
public:
    // Nothing when `inFd`/`outFd` are not terminals.
    static std::optional<TerminalSession> begin(int inFd, int outFd);

    TerminalSession(TerminalSession&& other) noexcept;
    TerminalSession& operator=(TerminalSession&&) = delete;
    TerminalSession(const TerminalSession&) = delete;
    TerminalSession& operator=(const TerminalSession&) = delete;
    ~TerminalSession();

    // Columns and rows; (80, 24) when the terminal does not say.
    std::pair<int, int> size() const;
    // Replaces the screen with `frame` (lines separated by "\n"), in one write.
    void draw(const std::string& frame) const;

    int inFd() const { return in_; }

private:
    TerminalSession(int in, int out) : in_(in), out_(out) {}
    int in_ = -1;
    int out_ = -1;
    bool active_ = false;
};

}  // namespace duskwell

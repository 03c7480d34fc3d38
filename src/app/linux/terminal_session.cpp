#include "terminal_session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>

namespace duskwell {
namespace {

// Leave the alternate screen, show the cursor, reset colours.
constexpr char kRestore[] = "\x1b[0m\x1b[?25h\x1b[?1049l";
constexpr char kEnter[] = "\x1b[?1049h\x1b[?25l\x1b[2J";

// The state the crash paths restore. Written once before they are armed, read in a signal
// handler: plain data only.
struct Saved {
    termios tios;
    int in = -1;
    int out = -1;
    int flags = 0;  // the input's file status flags (asio makes it non-blocking)
};
Saved g_saved;
std::atomic<bool> g_armed{false};
std::terminate_handler g_previousTerminate = nullptr;

void restoreNow() {
    if (!g_armed.exchange(false)) return;
    [[maybe_unused]] ssize_t n = ::write(g_saved.out, kRestore, sizeof kRestore - 1);
    ::tcsetattr(g_saved.in, TCSANOW, &g_saved.tios);
    ::fcntl(g_saved.in, F_SETFL, g_saved.flags);
}

void onFatalSignal(int sig) {
    restoreNow();
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

void onTerminate() {
    restoreNow();
    if (g_previousTerminate) g_previousTerminate();
    std::abort();
}

constexpr int kFatal[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};

}  // namespace

std::optional<TerminalSession> TerminalSession::begin(int inFd, int outFd) {
    if (!::isatty(inFd) || !::isatty(outFd)) return std::nullopt;
    termios tios{};
    if (::tcgetattr(inFd, &tios) != 0) return std::nullopt;
    g_saved.tios = tios;
    g_saved.in = inFd;
    g_saved.out = outFd;
    g_saved.flags = ::fcntl(inFd, F_GETFL);

    termios raw = tios;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);  // keep ISIG: Ctrl-C is SIGINT
    raw.c_iflag &= ~static_cast<tcflag_t>(IXON | ICRNL);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    if (::tcsetattr(inFd, TCSANOW, &raw) != 0) return std::nullopt;
    [[maybe_unused]] ssize_t n = ::write(outFd, kEnter, sizeof kEnter - 1);

    g_armed = true;
    struct sigaction sa{};
    sa.sa_handler = onFatalSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESETHAND;
    for (int sig : kFatal) ::sigaction(sig, &sa, nullptr);
    g_previousTerminate = std::set_terminate(onTerminate);

    TerminalSession session(inFd, outFd);
    session.active_ = true;
    return session;
}

TerminalSession::TerminalSession(TerminalSession&& other) noexcept
    : in_(other.in_), out_(other.out_), active_(other.active_) {
    other.active_ = false;
}

TerminalSession::~TerminalSession() {
    if (!active_) return;
    restoreNow();
    for (int sig : kFatal) ::signal(sig, SIG_DFL);
    std::set_terminate(g_previousTerminate);
}

std::pair<int, int> TerminalSession::size() const {
    winsize ws{};
    if (::ioctl(out_, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0 && ws.ws_row > 0) return {ws.ws_col, ws.ws_row};
    return {80, 24};
}

void TerminalSession::draw(const std::string& frame) const {
    // Home, then each line cleared to its end, then everything below cleared.
    std::string out = "\x1b[H";
    std::size_t start = 0;
    while (start <= frame.size()) {
        const auto end = frame.find('\n', start);
        out.append(frame, start, (end == std::string::npos ? frame.size() : end) - start);
        out += "\x1b[K";
        if (end == std::string::npos) break;
        out += "\r\n";
        start = end + 1;
    }
    out += "\x1b[J";
    const char* p = out.data();
    std::size_t left = out.size();
    while (left > 0) {
        const ssize_t n = ::write(out_, p, left);
        if (n <= 0) {
            if (n < 0 && errno == EINTR) continue;
            return;
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
}

}  // namespace duskwell

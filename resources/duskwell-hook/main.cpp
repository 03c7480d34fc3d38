// duskwell-hook: run by an AI agent (Claude Code, Codex, Gemini CLI) at each hooked event as
// `<path> claude|codex|gemini`, with the event's JSON on standard input, and by our OpenCode
// plugin as `<path> opencode` with a message of the same shape. It keeps one session record
// per agent session in ~/.duskwell/sessions, which the app reads to tell working, waiting
// and idle agents apart.
//
// The agent waits for this program, and some events feed its standard output to the
// model, so it prints nothing, exits 0 whatever happens and gives up silently on any
// error. It links nothing but two small pieces of the core and starts in about a
// millisecond.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#ifdef __APPLE__
#include <libproc.h>
#include <sys/sysctl.h>
#endif

#include <nlohmann/json.hpp>

#include "agents/agent_kind.h"
#include "agents/process_shape.h"
#include "integration/hook_record.h"

namespace {

using duskwell::AgentKind;
namespace HookRecord = duskwell::HookRecord;

// Events carry a tool's whole output at times; the fields we need come first, so a
// prefix is enough and the rest is never read.
constexpr std::size_t kMaxInput = 1 << 20;
// An agent closes our standard input once the event is written; one that does not must
// not hold us (or itself) up for long.
constexpr int kReadBudgetMs = 1000;

// ---- standard input -------------------------------------------------------------------

struct Input {
    std::string bytes;
    bool truncated = false;  // stopped at the cap; the JSON may be cut short
};

std::optional<Input> readInput() {
    if (isatty(STDIN_FILENO)) return std::nullopt;  // run by hand: there is no event
    Input in;
    in.bytes.reserve(16 * 1024);
    char buf[64 * 1024];
    timespec begun{};
    clock_gettime(CLOCK_MONOTONIC, &begun);
    for (;;) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const long elapsed = (now.tv_sec - begun.tv_sec) * 1000 + (now.tv_nsec - begun.tv_nsec) / 1000000;
        if (elapsed >= kReadBudgetMs) break;
        pollfd pfd{STDIN_FILENO, POLLIN, 0};
        const int ready = poll(&pfd, 1, static_cast<int>(kReadBudgetMs - elapsed));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) break;                          // error or time up
        if (pfd.revents & POLLNVAL) return std::nullopt;  // no standard input at all
        const std::size_t room = kMaxInput - in.bytes.size();
        const ssize_t n = read(STDIN_FILENO, buf, room < sizeof buf ? room : sizeof buf);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) break;  // end of input, or an error
        in.bytes.append(buf, static_cast<std::size_t>(n));
        if (in.bytes.size() >= kMaxInput) {
            in.truncated = true;
            break;
        }
    }
    return in;
}

// ---- the event's fields -----------------------------------------------------------------

struct Event {
    std::optional<std::string> name;
    std::optional<std::string> sessionId;
    std::optional<std::string> cwd;
    std::optional<std::string> notificationType;
};

// Collects the top-level strings we use without building the document.
class FieldCollector final : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit FieldCollector(Event& event) : event_(event) {}

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool string(string_t& value) override {
        if (depth_ != 1) return true;
        std::optional<std::string>* slot = nullptr;
        if (key_ == "hook_event_name") slot = &event_.name;
        else if (key_ == "session_id") slot = &event_.sessionId;
        else if (key_ == "cwd") slot = &event_.cwd;
        else if (key_ == "notification_type") slot = &event_.notificationType;
        if (slot && !*slot) *slot = value;
        return true;
    }
    bool start_object(std::size_t) override {
        if (depth_ == 0 && sawTop_) return false;
        sawTop_ = true;
        ++depth_;
        return true;
    }
    bool key(string_t& k) override {
        if (depth_ == 1) key_ = k;
        return true;
    }
    bool end_object() override {
        --depth_;
        return true;
    }
    bool start_array(std::size_t) override {
        if (depth_ == 0) return false;  // the event is an object, nothing else
        ++depth_;
        return true;
    }
    bool end_array() override {
        --depth_;
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }

private:
    Event& event_;
    std::string key_;
    int depth_ = 0;
    bool sawTop_ = false;
};

std::optional<Event> parseEvent(const Input& in) {
    Event event;
    FieldCollector collector(event);
    const bool complete = nlohmann::json::sax_parse(in.bytes, &collector,
                                                    nlohmann::json::input_format_t::json, true);
    // A document cut at the cap still counts when the fields came before the cut.
    if (!complete && !in.truncated) return std::nullopt;
    if (!event.name || !event.sessionId) return std::nullopt;
    return event;
}

// ---- finding the agent ------------------------------------------------------------------

struct Proc {
    pid_t ppid = 0;
    std::string exe;   // the executable's path
    std::string comm;  // the kernel's short name
    std::string args;  // the whole command line, blank-separated
};

std::string readSmallFile(const std::string& path, std::size_t cap) {
    std::string out;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return out;
    char buf[4096];
    while (out.size() < cap) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        out.append(buf, static_cast<std::size_t>(n));
    }
    close(fd);
    if (out.size() > cap) out.resize(cap);
    return out;
}

#ifdef __APPLE__

std::optional<Proc> inspect(pid_t pid) {
    kinfo_proc info{};
    std::size_t size = sizeof info;
    int mib[4] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    if (sysctl(mib, 4, &info, &size, nullptr, 0) != 0 || size == 0) return std::nullopt;
    Proc p;
    p.ppid = info.kp_eproc.e_ppid;
    p.comm = info.kp_proc.p_comm;
    char path[PROC_PIDPATHINFO_MAXSIZE];
    if (proc_pidpath(pid, path, static_cast<uint32_t>(sizeof path)) > 0) p.exe = path;

    // KERN_PROCARGS2: argc, the executable path, padding NULs, then argv.
    int argmax = 0;
    std::size_t len = sizeof argmax;
    int mibMax[2] = {CTL_KERN, KERN_ARGMAX};
    if (sysctl(mibMax, 2, &argmax, &len, nullptr, 0) != 0 || argmax <= 0) return p;
    std::vector<char> buf(static_cast<std::size_t>(argmax));
    std::size_t got = buf.size();
    int mibArgs[3] = {CTL_KERN, KERN_PROCARGS2, pid};
    if (sysctl(mibArgs, 3, buf.data(), &got, nullptr, 0) != 0 || got <= sizeof(int)) return p;
    int argc = 0;
    std::memcpy(&argc, buf.data(), sizeof argc);
    const char* cur = buf.data() + sizeof(int);
    const char* end = buf.data() + got;
    while (cur < end && *cur) ++cur;   // the executable path
    while (cur < end && !*cur) ++cur;  // its padding
    std::string args;
    for (int i = 0; i < argc && cur < end; ++i) {
        const char* start = cur;
        while (cur < end && *cur) ++cur;
        if (!args.empty()) args.push_back(' ');
        args.append(start, static_cast<std::size_t>(cur - start));
        ++cur;
    }
    p.args = std::move(args);
    return p;
}

#else

// /proc's cmdline: NUL-separated words, the last one NUL-terminated.
std::string joinArgs(std::string raw) {
    for (char& c : raw)
        if (c == '\0') c = ' ';
    while (!raw.empty() && raw.back() == ' ') raw.pop_back();
    return raw;
}

std::optional<Proc> inspect(pid_t pid) {
    const std::string base = "/proc/" + std::to_string(pid);
    const std::string stat = readSmallFile(base + "/stat", 4096);
    // "pid (comm) state ppid ..."; comm may hold blanks and parentheses.
    const auto lp = stat.find('(');
    const auto rp = stat.rfind(')');
    if (lp == std::string::npos || rp == std::string::npos || rp < lp) return std::nullopt;
    Proc p;
    p.comm = stat.substr(lp + 1, rp - lp - 1);
    char state = 0;
    int ppid = 0;
    if (std::sscanf(stat.c_str() + rp + 1, " %c %d", &state, &ppid) != 2) return std::nullopt;
    p.ppid = ppid;
    char path[4096];
    const ssize_t n = readlink((base + "/exe").c_str(), path, sizeof path - 1);
    if (n > 0) p.exe.assign(path, static_cast<std::size_t>(n));
    p.args = joinArgs(readSmallFile(base + "/cmdline", 64 * 1024));
    return p;
}

#endif

// The agent that started us: the nearest ancestor of its kind (the agent may run us through
// `sh -c` or a login shell), else our parent. For Codex that is its app-server daemon, which
// runs the session's hooks and tools and may serve a UI that is not its parent; the app
// ties the record to the UI.
pid_t agentPid(AgentKind kind) {
    const pid_t parent = getppid();
    pid_t pid = parent;
    for (int depth = 0; depth < 64 && pid > 1; ++depth) {
        const auto p = inspect(pid);
        if (!p) break;
        duskwell::ProcessInfo info;
        info.pid = pid;
        info.exe = p->exe;
        info.comm = p->comm;
        info.args = p->args;
        if (const auto m = duskwell::matchProcess(info); m && m->kind == kind && m->role != duskwell::ProcessRole::sandbox)
            return pid;
        pid = p->ppid;
    }
    return parent;
}

// ---- the record ---------------------------------------------------------------------------

double unixNow() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

bool writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// Puts the finished record in place so that a reader sees the old record or the new one,
// never a part of either.
bool moveIntoPlace(const std::string& tmp, const std::string& path) {
#if defined(__linux__) && defined(RENAME_EXCHANGE)
    // ext4 flushes a file's data to disk when it is renamed over another (auto_da_alloc):
    // milliseconds on a busy disk, at every event. Swapping the two names costs nothing and
    // is just as atomic; the old record then sits under our temporary name.
    if (renameat2(AT_FDCWD, tmp.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0) {
        unlink(tmp.c_str());
        return true;
    }
#endif
    return rename(tmp.c_str(), path.c_str()) == 0;  // first record, or no exchange here
}

void keepRecord(const std::string& sessions, const std::string& name, const Event& event,
                AgentKind kind) {
    const std::string path = sessions + "/" + name;
    switch (HookRecord::effectOf(*event.name, event.notificationType)) {
        case HookRecord::HookEffect::ignore: return;
        case HookRecord::HookEffect::remove: unlink(path.c_str()); return;
        case HookRecord::HookEffect::record: break;
    }
    const double now = unixNow();
    const std::string start =
        HookRecord::previousStart(readSmallFile(path, 4096)).value_or(HookRecord::formatTime(now));
    std::string cwd = event.cwd.value_or("");
    if (cwd.empty()) {
        char here[4096];
        if (getcwd(here, sizeof here)) cwd = here;  // agents start hooks in the session's folder
    }
    const std::string text = HookRecord::format(*event.name, now, agentPid(kind), start, cwd);

    // A private temporary name per writer: parallel hooks of one session must not
    // interleave their bytes.
    const std::string tmp = path + "." + std::to_string(getpid()) + ".tmp";
    unlink(tmp.c_str());
    const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return;
    const bool written = writeAll(fd, text);
    const bool closed = close(fd) == 0;
    if (!written || !closed || !moveIntoPlace(tmp, path)) unlink(tmp.c_str());
}

void run(int argc, char** argv) {
    if (argc != 2) return;
    const auto kind = AgentKind::fromRawValue(argv[1]);
    if (!kind) return;
    const char* home = std::getenv("HOME");
    if (!home || home[0] != '/') return;

    const auto input = readInput();
    if (!input) return;
    const auto event = parseEvent(*input);
    if (!event || !HookRecord::validEvent(*event->name)) return;
    const auto name = HookRecord::fileName(kind->rawValue(), *event->sessionId);
    if (!name) return;

    const std::string support = std::string(home) + "/.duskwell";
    const std::string sessions = support + "/sessions";
    // The app creates the folder when it installs us; put it back if someone removed it,
    // but never create the support folder itself (no app, no records).
    if (mkdir(sessions.c_str(), 0700) != 0 && errno != EEXIST) return;
    struct stat st {};
    if (stat(sessions.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return;
    keepRecord(sessions, *name, *event, *kind);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run(argc, argv);
    } catch (...) {
        // Nothing the hook does may fail the agent.
    }
    return 0;
}

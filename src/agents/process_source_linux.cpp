#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <sstream>
#include <unordered_map>

#include "agents/process_shape.h"
#include "agents/proc_parsers.h"
#include "agents/proc_process_source.h"
#include "core/text.h"
#include "power/command_runner_posix.h"

namespace duskwell {
namespace {

class Dir {
public:
    explicit Dir(const std::string& path) : d_(::opendir(path.c_str())) {}
    ~Dir() { if (d_) ::closedir(d_); }
    Dir(const Dir&) = delete;
    Dir& operator=(const Dir&) = delete;
    DIR* get() const { return d_; }

private:
    DIR* d_;
};

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& o) noexcept : fd_(o.fd_) { o.fd_ = -1; }
    Fd& operator=(Fd&& o) noexcept {
        if (this != &o) {
            reset();
            fd_ = o.fd_;
            o.fd_ = -1;
        }
        return *this;
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

// The whole of a small /proc file through a descriptor kept open: false once its process
// has gone (the kernel answers ESRCH), even if the pid was taken again since.
bool preadAll(int fd, std::string& out, size_t cap) {
    out.resize(cap);
    ssize_t n;
    do n = ::pread(fd, out.data(), cap, 0);
    while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
    out.resize(static_cast<size_t>(n));
    return true;
}

// Descriptors the source may keep open between samples: a quarter of the soft limit, so
// the rest of the program never runs short.
size_t descriptorBudget() {
    rlimit rl{};
    if (::getrlimit(RLIMIT_NOFILE, &rl) != 0 || rl.rlim_cur == RLIM_INFINITY) return 1024;
    return static_cast<size_t>(rl.rlim_cur / 4);
}

// Reads at most `cap` bytes of a file into `out`; false when it cannot be opened or read.
bool readFile(const std::string& path, std::string& out, size_t cap) {
    Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return false;
    out.clear();
    char buf[4096];
    while (out.size() < cap) {
        const ssize_t n = ::read(fd.get(), buf, std::min(sizeof buf, cap - out.size()));
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) break;
        out.append(buf, static_cast<size_t>(n));
    }
    return true;
}

std::optional<std::string> readLink(const std::string& path) {
    char buf[4096];
    const ssize_t n = ::readlink(path.c_str(), buf, sizeof buf);
    if (n <= 0 || static_cast<size_t>(n) >= sizeof buf) return std::nullopt;
    std::string target(buf, static_cast<size_t>(n));
    // A replaced binary still runs; its link says so.
    constexpr std::string_view deleted = " (deleted)";
    if (target.size() > deleted.size() && target.compare(target.size() - deleted.size(), deleted.size(), deleted) == 0)
        target.resize(target.size() - deleted.size());
    return target;
}

bool allDigits(const char* s) {
    if (!*s) return false;
    for (; *s; ++s)
        if (*s < '0' || *s > '9') return false;
    return true;
}

std::optional<std::string> findOnPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    if (!path) return std::nullopt;
    for (const auto& dir : Text::split(path, ':')) {
        const std::string candidate = dir + "/" + program;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

std::string_view baseName(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

class ProcProcessSource final : public ProcessSource {
public:
    explicit ProcProcessSource(ProcSourceOptions o) : options_(std::move(o)) {
        if (!options_.monotonicSeconds) {
            options_.monotonicSeconds = [] {
                return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
            };
        }
        if (options_.ticksPerSecond <= 0) options_.ticksPerSecond = ::sysconf(_SC_CLK_TCK);
        if (options_.ticksPerSecond <= 0) options_.ticksPerSecond = 100;
        if (!options_.nvidiaSmi) options_.nvidiaSmi = findOnPath("nvidia-smi").value_or("");
        std::string text;
        if (readFile(options_.procRoot + "/stat", text, 64 * 1024)) bootTime_ = ProcParsers::parseBootTime(text);
    }

    ProcessTable sample() override {
        ProcessTable table;
        const double now = options_.monotonicSeconds();
        const double wall = previousWall_ ? now - *previousWall_ : 0;
        std::unordered_map<std::int32_t, Previous> current;
        current.reserve(previous_.size() + 16);

        Dir dir(options_.procRoot);
        if (dir.get()) {
            std::string text;
            std::string base;
            size_t kept = 0;
            while (const dirent* e = ::readdir(dir.get())) {
                if (!allDigits(e->d_name)) continue;
                base = options_.procRoot + "/" + e->d_name;
                // The stat file stays open between samples (opening costs as much as
                // reading); a descriptor whose process is gone fails and is replaced.
                const auto listed = static_cast<std::int32_t>(std::atol(e->d_name));
                Fd statFd;
                if (auto it = previous_.find(listed); it != previous_.end()) statFd = std::move(it->second.statFd);
                if (statFd.get() < 0 || !preadAll(statFd.get(), text, 1024)) {
                    statFd = Fd(::open((base + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
                    if (statFd.get() < 0 || !preadAll(statFd.get(), text, 1024)) continue;  // gone since the listing
                }
                if (kept >= budget_) statFd.reset();
                else ++kept;
                const auto stat = ProcParsers::parseStat(text);
                if (!stat || stat->pid != listed) continue;
                if (stat->kernelThread()) {  // never an agent; kept only for its descriptor
                    current[listed] = {0, stat->startTime, {}, {}, {}, std::move(statFd)};
                    continue;
                }

                ProcessInfo p;
                p.pid = stat->pid;
                p.ppid = stat->ppid;
                const auto prev = previous_.find(stat->pid);
                const bool same = prev != previous_.end() && prev->second.startTime == stat->startTime;
                if (same && wall > 0 && stat->cpuTicks >= prev->second.cpuTicks) {
                    const double seconds = static_cast<double>(stat->cpuTicks - prev->second.cpuTicks) /
                                           static_cast<double>(options_.ticksPerSecond);
                    p.cpu = seconds / wall * 100.0;
                }
                // The executable and the command line change only with exec, which renames
                // comm too: a process seen before under the same name keeps what was read
                // then. A script host's arguments are read again every time, since they
                // name what it runs.
                p.comm = stat->comm;
                const bool known = same && prev->second.comm == stat->comm;
                p.exe = known ? prev->second.exe
                              : ProcParsers::chooseExecutable(readLink(base + "/exe"), stat->comm);
                if (known && !ProcParsers::isScriptHost(baseName(p.exe))) {
                    p.args = prev->second.args;
                } else if (readFile(base + "/cmdline", text, 64 * 1024)) {
                    p.args = ProcParsers::joinCmdline(text);
                }
                if (bootTime_)
                    p.started = dateFromUnix(*bootTime_ + static_cast<double>(stat->startTime) /
                                                              static_cast<double>(options_.ticksPerSecond));
                current[stat->pid] = {stat->cpuTicks, stat->startTime, stat->comm, p.exe, p.args, std::move(statFd)};
                table.processes.push_back(std::move(p));
            }
        }
        readByteCounters(table);
        previous_ = std::move(current);
        previousWall_ = now;
        table.gpu = gpuUtilization();
        return table;
    }

private:
    struct Previous {
        std::uint64_t cpuTicks = 0;
        std::uint64_t startTime = 0;
        std::string comm;
        std::string exe;
        std::string args;
        Fd statFd;
    };

    // Only the trees of recognised agents are ever summed, so only their processes' byte
    // counters are read: /proc/<pid>/io is as dear as the stat itself.
    void readByteCounters(ProcessTable& table) const {
        std::unordered_map<std::int32_t, std::vector<size_t>> children;
        std::vector<size_t> pending;
        for (size_t i = 0; i < table.processes.size(); ++i) {
            const auto& p = table.processes[i];
            children[p.ppid].push_back(i);
            if (matchProcess(p)) pending.push_back(i);
        }
        std::vector<bool> inTree(table.processes.size(), false);
        std::string text;
        while (!pending.empty()) {
            const size_t i = pending.back();
            pending.pop_back();
            if (inTree[i]) continue;
            inTree[i] = true;
            auto& p = table.processes[i];
            if (readFile(options_.procRoot + "/" + std::to_string(p.pid) + "/io", text, 1024))
                p.netBytes = ProcParsers::parseIoBytes(text);
            if (const auto kids = children.find(p.pid); kids != children.end())
                for (const size_t k : kids->second)
                    if (!inTree[k]) pending.push_back(k);
        }
    }

    std::optional<int> gpuUtilization() {
        std::optional<int> best;
        auto consider = [&](std::string_view text) {
            const auto v = Text::parseInteger(Text::trim(text));
            if (v && *v >= 0 && *v <= 100) best = std::max(best.value_or(0), static_cast<int>(*v));
        };
        Dir drm(options_.drmRoot);
        if (drm.get()) {
            std::string text;
            while (const dirent* e = ::readdir(drm.get())) {
                const std::string_view name = e->d_name;
                // card0, card1 ... but not the connectors (card0-HDMI-A-1).
                if (name.substr(0, 4) != "card" || name.find('-') != std::string_view::npos) continue;
                if (readFile(options_.drmRoot + "/" + std::string(name) + "/device/gpu_busy_percent", text, 64))
                    consider(text);
            }
        }
        if (!options_.nvidiaSmi->empty()) {
            const auto r = PosixCommandRunner().run(
                *options_.nvidiaSmi, {"--query-gpu=utilization.gpu", "--format=csv,noheader,nounits"});
            if (r.status == 0)
                for (const auto& line : Text::split(r.output, '\n')) consider(line);
        }
        return best;
    }

    ProcSourceOptions options_;
    size_t budget_ = descriptorBudget();
    std::unordered_map<std::int32_t, Previous> previous_;
    std::optional<double> previousWall_;
    std::optional<double> bootTime_;  // seconds since 1970; start times count from it
};

}  // namespace

std::unique_ptr<ProcessSource> makeProcProcessSource(ProcSourceOptions options) {
    return std::make_unique<ProcProcessSource>(std::move(options));
}

std::unique_ptr<ProcessSource> makePlatformProcessSource() { return makeProcProcessSource(); }

}  // namespace duskwell

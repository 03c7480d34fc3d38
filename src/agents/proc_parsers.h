#pragma once
// Text parsers for Linux's /proc files, kept portable so they are tested everywhere.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace duskwell::ProcParsers {

// The fields of /proc/<pid>/stat a scan needs.
struct Stat {
    std::int32_t pid = 0;
    std::string comm;  // at most 15 bytes, may hold blanks and parentheses
    std::int32_t ppid = 0;
    std::uint64_t flags = 0;
    std::uint64_t cpuTicks = 0;   // utime + stime, in clock ticks
    std::uint64_t startTime = 0;  // clock ticks after boot; tells a reused pid apart
    bool kernelThread() const { return (flags & 0x00200000u) != 0; }  // PF_KTHREAD
};

// "<pid> (<comm>) <state> <ppid> ...". The name runs to the LAST ')' because it may itself
// hold ") (". Nothing when the text is cut short or malformed.
std::optional<Stat> parseStat(std::string_view text);

// The "btime" line of /proc/stat: when the machine booted, in seconds since 1970.
std::optional<double> parseBootTime(std::string_view text);

// rchar + wchar of /proc/<pid>/io: every byte the process read or wrote through system
// calls, sockets included (read_bytes/write_bytes count only storage, never the network).
std::optional<std::int64_t> parseIoBytes(std::string_view text);

// /proc/<pid>/cmdline: NUL-separated words joined with blanks, trailing NULs dropped.
std::string joinCmdline(std::string_view raw);

// Names that say nothing on their own: interpreters whose command line tells what they run.
bool isScriptHost(std::string_view name);

// The executable a scan reports for a process, from the target of /proc/<pid>/exe (absent
// when unreadable: another user's process, a kernel thread) and its `comm`:
// - unreadable -> comm;
// - the target's name starts with comm (comm is cut at 15 bytes) -> the target;
// - comm alone names an agent (a versioned binary started through a `claude` link, a node
//   program that titled itself "claude") -> the target's folder joined with comm;
// - the target is a script host -> the target (a script named by comm runs in it, and its
//   command line tells which);
// - otherwise the target's folder joined with comm (the name it was started under).
std::string chooseExecutable(const std::optional<std::string>& target, std::string_view comm);

}  // namespace duskwell::ProcParsers

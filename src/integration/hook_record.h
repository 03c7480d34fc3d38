#pragma once
// The pure part of the hook program: what goes into a session record and under which
// name. Kept free of system calls so that it can be tested without spawning anything.
#include <optional>
#include <string>
#include <string_view>

namespace duskwell::HookRecord {

// Longest session identifier kept in a file name.
inline constexpr std::size_t maxIdLength = 128;

// A session identifier made safe as a file name inside the sessions folder: only
// [A-Za-z0-9._-] (anything else becomes "_"), no leading dots, at most `maxIdLength`
// characters, never ending in ".tmp" (the reader skips such names). Nothing when no
// usable character is left.
std::optional<std::string> sanitizeId(std::string_view id);

// "<kind>-<sanitised id>", or nothing when the id is unusable.
std::optional<std::string> fileName(std::string_view kind, std::string_view sessionId);

enum class HookEffect {
    record,  // rewrite the record with this event
    remove,  // the session is over
    ignore,  // leave the record as it is
};

// What an event does to its session's record. SessionEnd removes it. A notification
// counts only when it puts a question to the user (a permission, an MCP server's
// question); reminders ("idle_prompt" a minute after every turn, "auth_success") and
// notifications without a type change nothing, or a finished agent would look busy.
HookEffect effectOf(std::string_view event, std::optional<std::string_view> notificationType);

// An event name fit for the record's first line: 1-64 characters of [A-Za-z0-9_].
bool validEvent(std::string_view event);

// Seconds since 1970 with three decimals ("1763806800.125").
std::string formatTime(double seconds);

// The "start=" value of an earlier record, when it holds a number.
std::optional<std::string> previousStart(std::string_view record);

// The record's whole text. `cwd` is left out unless it is an absolute path on one line.
std::string format(std::string_view event, double at, long pid, std::string_view start,
                   std::string_view cwd);

}  // namespace duskwell::HookRecord

#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace duskwell::PmsetAssertions {

// One row of "Listed by owning process:" in `pmset -g assertions`:
//    pid 98217(caffeinate): [0x00045477000194b3] 00:00:03 PreventUserIdleSystemSleep named: "..."
struct Assertion {
    int pid = 0;
    std::string process;  // may hold blanks and parentheses
    std::string type;     // "PreventUserIdleSystemSleep"
    std::string name;     // the quoted name; pmset may print non-ASCII names mangled
};

// The per-process rows; the system-wide summary above them is ignored on purpose (its
// PreventUserIdleSystemSleep is a flag that powerd alone keeps at 1). Indented detail
// lines, kernel assertions and unknown lines are skipped.
std::vector<Assertion> parse(std::string_view text);

// Whether `pid` holds an idle-sleep assertion in `text` (the type's current name or its
// former one). Matched by pid and type, not by name, since names may be mangled.
bool holdsIdleSleepAssertion(std::string_view text, int pid);

}  // namespace duskwell::PmsetAssertions

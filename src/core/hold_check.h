#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "power/hold_probe.h"

namespace duskwell {

// One means a period sets up; also the reason code a failure is reported under.
enum class HoldItem { inhibitor, lid, profile };

// Whether what a period set up still holds: `broken` names what does not, `unknown` means
// nothing could be asked (never a warning).
struct HoldVerdict {
    enum class State { unknown, holds, broken };
    State state = State::unknown;
    std::vector<HoldItem> failing;  // in HoldItem order; empty unless broken
    bool operator==(const HoldVerdict&) const = default;
};

// What the running period set up, from the controller's own records.
struct HoldExpectation {
    bool inhibitor = false;         // a period runs, so an idle-sleep inhibitor should be held
    bool inhibitorGranted = false;  // the system granted it when asked
    bool lid = false;               // the helper switched lid-closed sleep off
    std::optional<int> powerMode;     // the battery power mode we set, when we changed it
    std::optional<int> lowPowerMode;  // the low-power mode we set, when we changed it
};

namespace HoldCheck {

// The decision, on plain values: an item fails when the system contradicts what was set
// (or refused it outright); an item the system could not be asked about is unknown.
// Broken when any item fails, holds when at least one was confirmed, else unknown.
HoldVerdict judge(const HoldExpectation& expected, const HoldObservation& seen);

// The probe's question for an expectation.
HoldQuery query(const HoldExpectation& expected, int pid);

// "inhibitor", "lid", "profile": stable codes for the status file.
std::string_view code(HoldItem item);
// Texts in the app's language: a few words for the status line, a sentence for the hero
// card and the alerts, the headline and the status line's lead-in.
std::string shortText(HoldItem item);
std::string sentence(HoldItem item);
std::string headline();
std::string statusLead(const std::vector<HoldItem>& failing);
std::string alertBody(const std::vector<HoldItem>& failing);

}  // namespace HoldCheck

// One failure episode: an alert is due at the first broken verdict, and again only after a
// verdict that holds. Unknown verdicts change nothing.
class HoldEpisode {
public:
    bool record(const HoldVerdict& verdict);  // true when an alert is due
    void reset() { alerted_ = false; }

private:
    bool alerted_ = false;
};

}  // namespace duskwell

#pragma once
#include <optional>
#include <string>
#include <vector>

#include "app/controls.h"
#include "core/keep_mode.h"

namespace duskwell {

class AwakeController;

struct HeaderModel {
    std::string name;
    std::string tagline;
    Button gear;
    bool operator==(const HeaderModel&) const = default;
};

// The centre of the progress ring: a text ("∞", a clock, a count) and/or a symbol, with a
// caption under it ("left", "to sleep", "working") or none.
struct RingModel {
    double progress = 0;
    std::string text;
    std::string symbol;
    std::string caption;
    bool operator==(const RingModel&) const = default;
};

struct HeroCardModel {
    std::string headline;
    std::string detail;
    RingModel ring;
    Button mainButton;
    std::vector<Button> extendRow;  // empty when no extend row shows
    bool operator==(const HeroCardModel&) const = default;
};

struct AgentRowModel {
    std::string symbol;  // the kind's glyph
    std::string tint;
    std::string title;
    std::optional<std::string> count;  // only above 1
    std::string subtitle;              // "Connected · 3 min", "Detected · idle", ...
    Pill status;                       // "Working" / "Waiting" / "Idle"
    bool operator==(const AgentRowModel&) const = default;
};

struct ConnectHintModel {
    std::string text;  // "Connect Claude Code for precise tracking"
    Button connect;
    bool operator==(const ConnectHintModel&) const = default;
};

struct AgentsCardModel {
    std::vector<AgentRowModel> rows;
    std::optional<std::string> more;  // "+2 more" when rows were left out
    // Empty state: both set exactly when there are no rows.
    std::optional<std::string> emptyTitle;
    std::optional<std::string> emptyDetail;
    std::optional<ConnectHintModel> hint;
    std::string footSymbol;  // "moon.zzz"
    std::string footText;    // "Sleeps after 10 quiet minutes"
    std::string cap;         // "Max 8h" or "No limit"
    bool operator==(const AgentsCardModel&) const = default;
};

struct TimerCardModel {
    std::vector<Chip> chips;  // one per preset, then "∞"
    bool operator==(const TimerCardModel&) const = default;
};

struct UntilCardModel {
    std::string title;    // "Stay awake until"
    int hour = 0;         // the picker's value (untilDate, local time)
    int minute = 0;
    std::string time;     // "HH:MM"
    std::string caption;  // "Then your Mac sleeps"
    Button apply;
    bool operator==(const UntilCardModel&) const = default;
};

struct StatPillModel {
    std::string symbol;
    std::string title;   // "Power", "Battery", "Lid", "Heat"
    std::string value;   // "85%", "—", "Closed", "Normal"
    std::optional<std::string> detail;  // "Charging", "about 2:05 left"
    std::string tint;
    bool operator==(const StatPillModel&) const = default;
};

struct StatusStripModel {
    StatPillModel power;
    StatPillModel lid;
    StatPillModel heat;
    bool operator==(const StatusStripModel&) const = default;
};

// A footer line: a symbol and a text, and a button when the line does something.
struct FooterItemModel {
    std::string symbol;
    std::string text;
    std::optional<Button> button;
    bool operator==(const FooterItemModel&) const = default;
};

struct MainPageModel {
    HeaderModel header;
    HeroCardModel hero;
    std::vector<Chip> modePicker;  // three segments in KeepMode order
    // Exactly one card, chosen by the selected mode.
    KeepMode card = KeepMode::auto_;
    std::optional<AgentsCardModel> agents;
    std::optional<TimerCardModel> timer;
    std::optional<UntilCardModel> until;
    StatusStripModel status;
    std::vector<FooterItemModel> footer;
    bool operator==(const MainPageModel&) const = default;
};

// Agent rows shown before the rest is summed up in one "+N more" line.
inline constexpr int kMaxAgentRows = 4;

MainPageModel makeMainPage(const AwakeController& c);

// Pieces, public so that renderers and tests can take them alone.
HeroCardModel makeHeroCard(const AwakeController& c);
AgentsCardModel makeAgentsCard(const AwakeController& c);
StatusStripModel makeStatusStrip(const AwakeController& c);
std::vector<FooterItemModel> makeMainFooter(const AwakeController& c);

}  // namespace duskwell

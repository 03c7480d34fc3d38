#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "app/action.h"
#include "app/main_page_model.h"
#include "app/popover_model.h"
#include "app/settings_page_model.h"
#include "app/status_item_model.h"

namespace duskwell {

class AwakeController;

// Everything a face in another process needs to draw the status item and both popover
// pages: the running service builds it from its controller and sends it as one JSON line;
// the face picks the page itself (each attached dashboard has its own page and scroll).
struct ViewState {
    StatusItemModel status;
    MainPageModel main;
    SettingsPageModel settings;
    bool operator==(const ViewState&) const = default;
};

ViewState makeViewState(const AwakeController& c);

// The popover for `screen`, as the in-process face would build it.
PopoverModel popoverFor(const ViewState& state, Screen screen);

// The streaming part of the control protocol (version 2). A client sends "watch" and reads
// "ok", then one view-state line per change for as long as it stays connected. Actions go
// one per connection as "action <name> [arg...]", answered like any other request.
namespace ViewProtocol {

inline constexpr int version = 2;
inline constexpr std::string_view watch = "watch";
inline constexpr std::string_view actionPrefix = "action ";

// One line, no "\n": {"protocol":2,"status":{...},"main":{...},"settings":{...}}.
std::string encode(const ViewState& state);
// Nothing for a line that is not a view state of this protocol version.
std::optional<ViewState> decode(std::string_view line);

// "action setPhone on", "action startPreset 60", "action setIntegration claude off".
std::string actionRequest(const Action& action);
// The inverse; nothing for an unknown name or a malformed argument.
std::optional<Action> parseActionRequest(std::string_view request);

}  // namespace ViewProtocol
}  // namespace duskwell

#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/action.h"
#include "app/popover_model.h"

namespace duskwell {

// One key press, decoded from the raw bytes a terminal sends.
struct Key {
    enum class Kind { character, escape, enter, up, down, backspace };
    Kind kind = Kind::character;
    char ch = 0;  // for `character`: the ASCII character
    bool operator==(const Key&) const = default;
    static Key character(char c) { return Key{Kind::character, c}; }
    static Key special(Kind k) { return Key{k, 0}; }
};

// Splits raw terminal input into keys: printable ASCII, Enter (CR or LF), a lone Esc,
// Backspace (DEL or BS), and the Up/Down arrows (CSI or SS3 form). Other escape sequences and bytes are dropped.
std::vector<Key> decodeKeys(std::string_view bytes);

// What a key does in the dashboard.
struct DashboardCommand {
    enum class Kind { perform, quit, scrollUp, scrollDown, showCode, hideCode };
    Kind kind = Kind::perform;
    std::optional<Action> action;  // for `perform`
    bool operator==(const DashboardCommand&) const = default;
};

// One key binding of the page on screen: the key, the label the footer shows for it (empty
// when the key is shown beside its control instead), and what it does. Controls that are
// disabled (privileged work in progress) get no binding.
struct KeyBinding {
    Key key;
    std::string keyLabel;  // "space", "a", "1", "Esc"
    std::string hint;      // footer text, empty when the control shows its key itself
    DashboardCommand command;
};

// The bindings of the page the model shows. `phoneToggle` is the phone switch's action
// (from the settings page), so that "p" works on both pages.
std::vector<KeyBinding> keyBindings(const PopoverModel& model, const Action& phoneToggle);

// The command bound to `key`, if any.
std::optional<DashboardCommand> commandForKey(const std::vector<KeyBinding>& bindings, const Key& key);

// The key label bound to `action` on this page ("1", "+", "w"), if any; renderers print it
// beside the control.
std::optional<std::string> keyLabelFor(const std::vector<KeyBinding>& bindings, const Action& action);

}  // namespace duskwell

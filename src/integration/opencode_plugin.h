#pragma once
// The plugin Duskwell puts into OpenCode's plugin folder. OpenCode has no hooks of the
// command kind; a plugin runs inside OpenCode and sees its events, so ours turns them into
// the same messages our hook program takes from the other agents.
#include <string>

namespace duskwell::OpencodePlugin {

// The module's whole text, running the hook program at `hookPath`. It tells the hook
// "SessionStart" when OpenCode loads it, then "SessionBusy" while any session works,
// "UserQuestion" while a permission or question waits for the user and "SessionIdle" when
// neither is left, one message at a time and only on a change. Every handler is async and
// catches everything: a plugin that throws synchronously stops OpenCode's turns.
std::string source(const std::string& hookPath);

}  // namespace duskwell::OpencodePlugin

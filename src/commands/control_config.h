#pragma once
#include <optional>
#include <string>

#include "commands/control_protocol.h"

namespace duskwell {

class AwakeController;

// The settings requests of the control socket (protocol version 2), one line each:
//
//   version                   -> ok <version>
//   config get                -> ok {"mode":"auto","timer-minutes":60,...}   (ConfigKeys)
//   config set <key> <value>  -> ok {"<key>":<value>} | error <why>
//   phone on|off              -> ok
//   phone test                -> ok (the outcome arrives in "phone status") | error <why>
//   phone status              -> ok {"enabled":true,"lastResult":"Sent"|null,"topic":"..."}
//   helper install|remove     -> ok <what happened> | error <why>
//
// Changes go through the controller, so that a running service and its dashboard see them
// at once. Main thread.
namespace ControlProtocol {
std::optional<Reply> answerSettings(AwakeController& controller, const std::string& request);
}

}  // namespace duskwell

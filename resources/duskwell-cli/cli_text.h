#pragma once
// Every message of the terminal command, in one table (cli_text.cpp), English and Korean.
#include <initializer_list>
#include <string>

namespace duskwell::cli {

enum class Msg {
    notRunning, cantReach, notUnderstood, refusedCommand, outOfDate, unknownCommand, unexpected, needsValue,
    modeWords, minutesNumber, atFormat, minutesWithAuto, minutesWithUntil, atWithMode, extendMinutes, noArguments,
    notWrittenYet, neverRan, lastState, secondsAgo, minutesAgo, hoursAgo, modeLabel, endsAtLabel, sleepsIn,
    unknownKey, keyNeedsApp, configUsage, changedLive, savedOffline, phoneUsage, phoneOn, phoneOff, phoneTestNeedsApp,
    phoneTestResult, phoneTestPending, helperUsage, helperInstalled, helperRemoved, connectUsage, noHooks, connected, disconnected,
    dashboardOnMac, dashboardNeedsTerminal, cannotRun, helpUsage, helpIntro, helpCommands, helpOptions, helpExit, helpKeys,
};

// The text of `m` in the app's language, "{1}", "{2}" replaced by `args`.
std::string say(Msg m, std::initializer_list<std::string> args = {});

}  // namespace duskwell::cli

#include "cli_text.h"

#include <array>
#include <utility>

#include "core/localization.h"

namespace duskwell::cli {
namespace {

struct Row {
    Msg id;
    const char* en;
    const char* ko;
};

constexpr Row rows[] = {
    {Msg::notRunning, "Duskwell is not running (start the app, or `duskwelld` on Linux, and try again)",
     "Duskwell이 실행 중이 아니에요 (앱을, Linux에서는 `duskwelld`를 시작한 뒤 다시 시도하세요)"},
    {Msg::cantReach, "couldn't reach Duskwell: {1}", "Duskwell에 연결하지 못했어요: {1}"},
    {Msg::notUnderstood, "Duskwell did not understand {1} (is it up to date?)",
     "Duskwell이 {1}을(를) 이해하지 못했어요 (최신 버전인가요?)"},
    {Msg::refusedCommand, "Duskwell refused the command", "Duskwell이 명령을 거절했어요"},
    {Msg::outOfDate, "the running Duskwell is older than this command; restart it and try again",
     "실행 중인 Duskwell이 이 명령보다 오래된 버전이에요. 다시 시작한 뒤 시도하세요"},
    {Msg::unknownCommand, "unknown command '{1}' (see duskwell --help)", "알 수 없는 명령 '{1}' (duskwell --help 참고)"},
    {Msg::unexpected, "unexpected '{1}' (see duskwell {2} --help)", "예상하지 못한 '{1}' (duskwell {2} --help 참고)"},
    {Msg::needsValue, "{1} needs a value", "{1}에는 값이 필요해요"},
    {Msg::modeWords, "--mode takes auto, timer or until", "--mode 값은 auto, timer, until 중 하나예요"},
    {Msg::minutesNumber, "--minutes takes a whole number of minutes from 0 to {1} (0 = no limit)",
     "--minutes 값은 0에서 {1} 사이의 분이에요 (0 = 제한 없음)"},
    {Msg::atFormat, "--at takes a local time as HH:MM (00:00 to 23:59), not '{1}'",
     "--at 값은 HH:MM 형식의 현지 시각이에요 (00:00–23:59). '{1}'은(는) 안 돼요"},
    {Msg::minutesWithAuto, "--minutes does nothing in auto mode (it ends when the agents are done); use --mode timer",
     "--minutes는 auto 모드에서 쓰이지 않아요 (에이전트가 끝나면 멈춰요). --mode timer를 쓰세요"},
    {Msg::minutesWithUntil, "--minutes does nothing in until mode; give the end with --at HH:MM",
     "--minutes는 until 모드에서 쓰이지 않아요. 끝나는 시각은 --at HH:MM으로 주세요"},
    {Msg::atWithMode, "--at sets the end of an until period; it does nothing with --mode {1}",
     "--at은 until 모드의 끝나는 시각이에요. --mode {1}에서는 쓰이지 않아요"},
    {Msg::extendMinutes, "extend takes a whole number of minutes from 1 to {1}",
     "extend 값은 1에서 {1} 사이의 분이에요"},
    {Msg::noArguments, "{1} takes no arguments", "{1}에는 인수가 없어요"},
    {Msg::notWrittenYet, "Duskwell is running but has not written {1} yet",
     "Duskwell이 실행 중이지만 아직 {1}을(를) 쓰지 않았어요"},
    {Msg::neverRan, "Duskwell has not run yet for this user (no {1})",
     "이 사용자로 Duskwell이 아직 실행된 적이 없어요 ({1} 없음)"},
    {Msg::lastState, "{1}; this is the last state it wrote, {2}", "{1}. 마지막으로 기록된 상태예요 ({2})"},
    {Msg::secondsAgo, "{1} s ago", "{1}초 전"},
    {Msg::minutesAgo, "{1} min ago", "{1}분 전"},
    {Msg::hoursAgo, "{1} h ago", "{1}시간 전"},
    {Msg::modeLabel, "Mode: {1}", "모드: {1}"},
    {Msg::endsAtLabel, "Ends at: {1}", "끝나는 시각: {1}"},
    {Msg::sleepsIn, "Sleeps in: {1} s unless agents work", "잠자기까지: {1}초 (에이전트가 일하지 않으면)"},
    {Msg::unknownKey, "unknown setting '{1}' (see duskwell config --help)",
     "알 수 없는 설정 '{1}' (duskwell config --help 참고)"},
    {Msg::keyNeedsApp, "{1} is changed by the running Duskwell; start it first",
     "{1}은(는) 실행 중인 Duskwell이 바꿔요. 먼저 시작하세요"},
    {Msg::configUsage, "usage: duskwell config get [KEY] | config set KEY VALUE",
     "사용법: duskwell config get [KEY] | config set KEY VALUE"},
    {Msg::changedLive, "{1} = {2}", "{1} = {2}"},
    {Msg::savedOffline, "{1} = {2} (saved; Duskwell uses it when it starts)",
     "{1} = {2} (저장됨. Duskwell이 시작할 때 적용돼요)"},
    {Msg::phoneUsage, "usage: duskwell phone [on|off|test] [--json]", "사용법: duskwell phone [on|off|test] [--json]"},
    {Msg::phoneOn, "Phone alerts are on", "폰 알림이 켜졌어요"},
    {Msg::phoneOff, "Phone alerts are off", "폰 알림이 꺼졌어요"},
    {Msg::phoneTestNeedsApp, "a test alert is sent by the running Duskwell; start it first",
     "테스트 알림은 실행 중인 Duskwell이 보내요. 먼저 시작하세요"},
    {Msg::phoneTestResult, "Test alert: {1}", "테스트 알림: {1}"},
    {Msg::phoneTestPending, "the test alert is on its way; the ntfy server has not answered yet",
     "테스트 알림을 보내는 중이에요. ntfy 서버가 아직 답하지 않았어요"},
    {Msg::helperUsage, "usage: duskwell helper install|remove", "사용법: duskwell helper install|remove"},
    {Msg::helperInstalled, "Power helper installed.", "전원 도우미를 설치했어요."},
    {Msg::helperRemoved, "Power helper removed.", "전원 도우미를 제거했어요."},
    {Msg::connectUsage, "usage: duskwell {1} claude|codex|gemini|opencode", "사용법: duskwell {1} claude|codex|gemini|opencode"},
    {Msg::noHooks, "'{1}' has no hooks to {2} (claude, codex, gemini or opencode)", "'{1}'에는 {2}할 훅이 없어요 (claude, codex, gemini, opencode)"},
    {Msg::connected, "{1} connected: {2}", "{1} 연결됨: {2}"},
    {Msg::disconnected, "{1} disconnected", "{1} 연결 해제됨"},
    {Msg::dashboardOnMac, "on macOS the dashboard is Duskwell's menu-bar item",
     "macOS에서는 메뉴 막대의 Duskwell 항목이 대시보드예요"},
    {Msg::dashboardNeedsTerminal, "the dashboard needs a terminal (use `duskwell status` in scripts)",
     "대시보드는 터미널이 필요해요 (스크립트에서는 `duskwell status`를 쓰세요)"},
    {Msg::cannotRun, "cannot run {1}: {2}", "{1}을(를) 실행할 수 없어요: {2}"},
    {Msg::helpUsage, "usage: duskwell start | stop | status\n       duskwell COMMAND [OPTIONS] [--json]",
     "usage: duskwell start | stop | status\n       duskwell 명령 [옵션] [--json]"},
    {Msg::helpIntro, "Keeps your machine awake while AI agents work, through the running Duskwell app.",
     "AI 에이전트가 일하는 동안 실행 중인 Duskwell 앱을 통해 컴퓨터를 깨워 둬요."},
    {Msg::helpCommands, "Commands:", "명령:"},
    {Msg::helpOptions, "Options:", "옵션:"},
    {Msg::helpExit,
     "Exit status: 0 done, 1 refused or failed, 2 usage error (nothing changed), 3 Duskwell not running.\n"
     "--json: every command prints one JSON object on stdout (see docs/commands.md).",
     "종료 코드: 0 완료, 1 거절 또는 실패, 2 사용법 오류 (아무것도 바뀌지 않음), 3 Duskwell 실행 안 됨.\n"
     "--json: 모든 명령이 stdout에 JSON 객체 하나를 출력해요 (docs/commands.md 참고)."},
    {Msg::helpKeys, "Keys:", "설정 키:"},
};

}  // namespace

std::string say(Msg m, std::initializer_list<std::string> args) {
    std::string text;
    for (const Row& row : rows)
        if (row.id == m) text = T(row.ko, row.en);
    int n = 1;
    for (const auto& arg : args) {
        const std::string mark = "{" + std::to_string(n++) + "}";
        for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + arg.size()))
            text.replace(at, mark.size(), arg);
    }
    return text;
}

}  // namespace duskwell::cli

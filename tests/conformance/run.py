#!/usr/bin/env python3
"""Real-client conformance: the npm Claude Code, Codex, Gemini CLI and OpenCode, driven
through tmux in a temporary HOME against loopback stand-in APIs, checked step by step against
what `duskwell agents --json` and a real duskwelld report.

  run.py claude|codex|gemini|opencode|all --bin BUILD/bin [--claude VERSION] [--codex VERSION]
         [--gemini VERSION] [--opencode VERSION] [--keep]

Runs in its own pid, mount and network namespaces when `unshare` allows it (only this run's
processes in /proc, only loopback, and everything it started dies with it); otherwise in
place, with a warning. Exit status: 0 every step passed, 1 a step failed.
"""

import argparse
import json
import os
import re
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from harness import (Abort, Report, Sandbox, agent_folder, bring_loopback_up,  # noqa: E402
                     describe_tree, find_processes, pins, process_table, wait_for)

TITLES = {"claude": "Claude Code", "codex": "Codex", "gemini": "Gemini CLI", "opencode": "OpenCode"}
# `all` runs these pairs one after the other, the two of a pair side by side: four real agents
# at once are too much for a 2-core machine.
PAIRS = (("claude", "codex"), ("gemini", "opencode"))
# duskwelld's clock runs this much faster: the ten quiet minutes of an auto period last 100 s,
# long enough for Claude's idle reminder (60 s after a turn) to land inside them.
TIME_SCALE = 6
QUIET_SECONDS = 600 / TIME_SCALE
# Seconds a status check may wait for duskwelld: it scans every 5 s during an auto period and
# every 30 s outside one.
IN_PERIOD, OUT_OF_PERIOD = 15, 40

# Requests an agent makes that no setting switches off, with the process that must have sent
# them; the proxy refuses them and the run lists them. Codex 0.169's TUI fetches its
# announcement tip at every start, and its daemon's update loop fetches
# chatgpt.com/codex/install.sh (to run it) 5 minutes after the daemon starts, then hourly.
UNSTOPPABLE = {"codex": [
    ("CONNECT raw.githubusercontent.com:443 HTTP/1.1", r"/bin/codex$"),
    ("CONNECT chatgpt.com:443 HTTP/1.1", r" app-server daemon pid-update-loop$"),
]}


# ---------------------------------------------------------------------------- checks

def brief(item):
    if item is None:
        return "none"
    keys = ("state", "count", "viaHooks", "hooks")
    text = ", ".join(f"{k}={item[k]}" for k in keys if k in item)
    if isinstance(item.get("sessions"), list):
        text += ", sessions=[" + " ".join(str(x.get("state")) for x in item["sessions"]) + "]"
    elif isinstance(item.get("sessions"), int):
        text += f", sessions={item['sessions']}"
    return "{" + text + "}"


class Checker:
    def __init__(self, sb, rep, kind):
        self.sb, self.rep, self.kind = sb, rep, kind

    def observe(self):
        row = next((r for r in self.sb.agents() if r.get("kind") == self.kind), None)
        status = self.sb.status() or {}
        entry = next((a for a in status.get("agents") or [] if a.get("name") == TITLES[self.kind]),
                     None)
        return row, entry

    @staticmethod
    def matches(row, entry, want):
        if want is None:
            return row is None and entry is None
        if row is None:
            return False
        # "sessions" (how many hook sessions the row lists) and "hooks" are checked once rows
        # carry them; older builds have neither.
        row_ok = all(row.get(k) == v for k, v in want.items() if k not in ("sessions", "hooks"))
        if "sessions" in want and "sessions" in row:
            row_ok = row_ok and len(row["sessions"]) == want["sessions"]
        if "hooks" in want and "hooks" in row:
            row_ok = row_ok and row["hooks"] == want["hooks"]
        if not any(k in want for k in ("state", "count")):
            return row_ok  # a property of the row alone: duskwelld's entry has no such field
        return row_ok and entry is not None and all(entry.get(k) == want[k] for k in ("state", "count") if k in want)

    def expect(self, step, want, timeout, during=None, what=""):
        """Passes once both reports match `want` (None: no row at all) while `during` holds."""
        deadline = time.time() + timeout
        seen = "nothing"
        while True:
            held = during() if during else True
            row, entry = self.observe()
            ok = self.matches(row, entry, want) and held and (during() if during else True)
            seen = f"agents --json {brief(row)}, duskwelld {brief(entry)}"
            if ok:
                return self.rep.step(step, True, f"{seen} {what}".strip())
            if not held:
                return self.rep.step(step, False, f"{what} ended before a match; last: {seen}")
            if time.time() >= deadline:
                return self.rep.step(step, False, f"wanted {brief(want)} within {timeout} s; last: {seen}")
            time.sleep(0.3)

    def hold(self, step, want, until, interval=3.0, cli_slips=0):
        """Every observation until `until` (a time) must match `want`.

        `cli_slips`: how many looks may find `duskwell agents` alone reading a hook-less root
        as working from one second of CPU while duskwelld, which remembers that root's ended
        session, reads it right. The one-shot command has no such memory."""
        n, bad, slips = 0, None, []
        while True:
            row, entry = self.observe()
            n += 1
            if not self.matches(row, entry, want):
                look = (f"look {n} at +{time.time() - self.rep.t0:.0f}s: agents --json {brief(row)}, "
                        f"duskwelld {brief(entry)}")
                one_shot_only = (row is not None and not row.get("sessions") and entry is not None
                                 and self.matches(dict(row, state=entry.get("state")), entry, want))
                if one_shot_only and len(slips) < cli_slips:
                    slips.append(look)
                elif bad is None:
                    bad = look
            if time.time() >= until:
                break
            time.sleep(min(interval, max(0.0, until - time.time())))
        # The whole span is waited out either way, so later steps keep their timing.
        note = f"; one-shot slips: {slips}" if slips else ""
        return self.rep.step(step, bad is None, (bad or f"{n} looks; last agents --json {brief(row)}, "
                                                        f"duskwelld {brief(entry)}") + note)


# The tools the stand-in model asks for: a script that works the CPU a little for N seconds,
# like a build or a test run would (a bare `sleep` would be a child that does nothing).
WORK_SH = """#!/bin/sh
end=$(( $(date +%s) + $1 ))
while [ "$(date +%s)" -lt "$end" ]; do
  head -c 2000000 /dev/zero | md5sum >/dev/null
  sleep 0.05
done
"""


def install_work(sb):
    path = os.path.join(sb.project, "work.sh")
    with open(path, "w") as f:
        f.write(WORK_SH)
    os.chmod(path, 0o755)


def work(seconds):
    """Matches the tool's own process (`/bin/sh ./work.sh N`), not the shells around it."""
    return rf"^(/bin/)?sh \./work\.sh {seconds}$"


def tool_alive(pattern):
    return lambda: bool(find_processes(pattern))


def start_auto(sb, rep):
    r = sb.duskwell("start", "--mode", "auto")
    if r.returncode != 0:
        raise Abort(f"duskwell start --mode auto failed: {r.stdout} {r.stderr}")
    rep.log(f"auto period started: {r.stdout.strip()}")


def check_period_end(sb, rep, last_turn_end):
    """The auto period ends by itself about ten scaled minutes after the last turn, with the
    finishing message, and nobody is told an agent waits after that turn."""
    deadline = QUIET_SECONDS + 60
    ok, _ = wait_for(lambda: ("All AI tasks finished" in sb.daemon_log()
                              and not (sb.status() or {}).get("active"), None),
                     max(5, last_turn_end + deadline - time.time()), 1.0)
    ended = time.time() - last_turn_end
    status = sb.status() or {}
    rep.step("auto period ends by itself after the last turn", ok,
             f"{ended:.0f} s after the turn (quiet rule {QUIET_SECONDS:.0f} s); status {status.get('status')!r}"
             if ok else f"still running {ended:.0f} s after the turn: {status.get('status')!r}; "
                        f"log tail: {sb.daemon_log()[-600:]!r}")
    alerts = [(r["t"], (r.get("summary") or {})) for r in sb.records("ntfy") if r.get("method") == "POST"]
    late_waiting = [s for t, s in alerts if t > last_turn_end and "waiting" in
                    f"{s.get('title')} {s.get('message')}".lower()]
    finished = [s for t, s in alerts if "All AI tasks finished" in str(s.get("message"))]
    rep.step("no 'waiting' phone alert after the last turn, one 'finished' alert",
             not late_waiting and len(finished) == 1,
             f"waiting after the turn: {late_waiting}; finished alerts: {len(finished)}")


def check_network(sb, rep, kind):
    def unstoppable(req, who):
        return any(req == r and re.search(w, who) for r, w in UNSTOPPABLE.get(kind, []))
    attempts = sb.proxy_attempts()
    bad = [f"{req} from {who[-90:]}" for req, who in attempts if not unstoppable(req, who)]
    known = [f"{req} from {who[-60:]}" for req, who in attempts if unstoppable(req, who)]
    rep.step("nothing but the stand-in was contacted", not bad,
             f"refused: {bad or 'none'}" + (f"; refused, no off switch: {known}" if known else ""))


# ---------------------------------------------------------------------------- Claude Code

# The empty input line of Claude's prompt box, shown once it takes input.
CLAUDE_READY = r"(?m)^❯\s*$"
CLAUDE_EVENTS = ("SessionStart SessionEnd UserPromptSubmit PreToolUse PostToolUse PostToolUseFailure "
                 "PermissionRequest PermissionDenied Notification Stop StopFailure").split()


def claude(sb, rep):
    check = Checker(sb, rep, "claude")
    install_work(sb)
    tmux = sb.start_tmux()
    with open(os.path.join(sb.home, ".claude.json"), "w") as f:
        json.dump({"hasCompletedOnboarding": True,
                   "customApiKeyResponses": {"approved": ["sk-ant-dummy"], "rejected": []},
                   "projects": {sb.project: {"hasTrustDialogAccepted": True,
                                             "hasCompletedProjectOnboarding": True}}}, f)
    os.makedirs(os.path.join(sb.project, ".claude"))
    with open(os.path.join(sb.project, ".claude", "settings.local.json"), "w") as f:
        # Turn 1 runs unasked; newer builds default to "auto" mode, which would answer turn 2's
        # question by itself, so the asking mode is chosen explicitly.
        json.dump({"permissions": {"allow": ["Bash(./work.sh:*)"], "defaultMode": "default"}}, f)
    sb.start_daemon()

    # Without hooks: the process scan alone must find the npm install (a native claude.exe).
    tmux.type("clear; claude")
    tmux.wait_screen(CLAUDE_READY, 60)
    table = process_table()
    rep.log("claude at rest: " + describe_tree(table, find_processes(r"^claude( |$)", table)))
    check.expect("seen without hooks", {"count": 1, "viaHooks": False, "hooks": "off"}, OUT_OF_PERIOD)
    tmux.type("/exit")
    check.expect("gone after /exit (no hooks)", None, OUT_OF_PERIOD)

    # Our event log beside Duskwell's hook, then `duskwell connect claude`.
    settings = os.path.join(sb.home, ".claude", "settings.json")
    os.makedirs(os.path.dirname(settings), exist_ok=True)
    with open(settings, "w") as f:
        json.dump({"hooks": {e: [{"hooks": [{"type": "command", "command": sb.event_hook("claude")}]}]
                             for e in CLAUDE_EVENTS}}, f)
    r = sb.duskwell("connect", "claude")
    rep.step("duskwell connect claude", r.returncode == 0, (r.stdout + r.stderr).strip())

    t = time.time()
    tmux.type("clear; claude")
    tmux.wait_screen(CLAUDE_READY, 60)
    sb.wait_event("SessionStart", t, 20)
    start_auto(sb, rep)
    check.expect("a fresh session is a known idle session",
                 {"count": 1, "state": "idle", "viaHooks": True, "sessions": 1, "hooks": "connected"},
                 IN_PERIOD)

    # Turn 1: a tool that needs no permission.
    t = time.time()
    tmux.type("RUN<<./work.sh 18>>")
    ok, _ = wait_for(lambda: (bool(find_processes(work(18))), None), 30, 0.2)
    if not ok:
        raise Abort("the tool never started:\n" + tmux.screen())
    check.expect("working during a tool call", {"count": 1, "state": "working"}, 18,
                 during=tool_alive(work(18)), what="(tool running)")
    sb.wait_event("Stop", t, 40)

    # Turn 2: a tool that asks first; approval fires no event.
    t = time.time()
    tmux.type("RUN<<./work.sh 20 && touch approved.txt>>")
    tmux.wait_screen(r"Do you want to proceed\?", 30)
    check.expect("waiting at the permission prompt", {"count": 1, "state": "waiting"}, IN_PERIOD)
    sb.wait_event("Notification", t, 20, notification_type="permission_prompt")
    check.expect("still waiting after the permission_prompt notification", {"state": "waiting"}, IN_PERIOD)
    tmux.keys("Enter")  # "1. Yes"
    ok, _ = wait_for(lambda: (bool(find_processes(work(20))), None), 10, 0.2)
    if not ok:
        raise Abort("the approved tool never started:\n" + tmux.screen())
    check.expect("working again after approval (tool still running)", {"count": 1, "state": "working"},
                 20, during=tool_alive(work(20)), what="(tool running)")
    stop = sb.wait_event("Stop", t, 60)
    turn_end = stop["t"]
    check.expect("idle after the turn", {"count": 1, "state": "idle", "viaHooks": True, "sessions": 1},
                 IN_PERIOD)

    # Claude reminds the user 60 s after a turn ("idle_prompt"); that is not a question.
    check.hold("still idle 70 s after the turn, idle_prompt included", {"count": 1, "state": "idle"},
               turn_end + 70)
    reminders = [e for e in sb.events(turn_end) if e.get("notification_type") == "idle_prompt"]
    rep.step("the idle_prompt reminder really fired during that minute", bool(reminders),
             f"{len(reminders)} idle_prompt event(s)")
    check_period_end(sb, rep, turn_end)

    # /clear ends the session and starts another one in the same process.
    t = time.time()
    tmux.type("/clear")
    sb.wait_event("SessionStart", t, 20, source="clear")
    time.sleep(2)
    check.expect("a known idle session after /clear",
                 {"count": 1, "state": "idle", "viaHooks": True, "sessions": 1},
                 OUT_OF_PERIOD)

    t = time.time()
    tmux.type("/exit")
    sb.wait_event("SessionEnd", t, 20)
    check.expect("gone after /exit", None, OUT_OF_PERIOD)
    records = os.listdir(os.path.join(sb.home, ".duskwell", "sessions")) \
        if os.path.isdir(os.path.join(sb.home, ".duskwell", "sessions")) else []
    rep.step("no session record left", not [r for r in records if r.startswith("claude-")], str(records))

    # Print mode: one short-lived session (in a new period, so duskwelld scans every 5 s).
    start_auto(sb, rep)
    p = subprocess.Popen(["claude", "-p", "RUN<<./work.sh 15>>", "--allowedTools", "Bash(./work.sh:*)"],
                         env=sb.env, cwd=sb.project, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                         stdin=subprocess.DEVNULL, text=True)
    ok, _ = wait_for(lambda: (bool(find_processes(work(15))), None), 30, 0.2)
    if ok:
        check.expect("claude -p: one working session", {"count": 1, "state": "working"}, 15,
                     during=tool_alive(work(15)), what="(tool running)")
    else:
        rep.step("claude -p: one working session", False, "its tool never started")
    out, _ = p.communicate(timeout=60)
    check.expect("claude -p: gone after it ends", None, OUT_OF_PERIOD, what=f"(output {out.strip()!r})")
    check_network(sb, rep, "claude")


# ---------------------------------------------------------------------------- Codex

CODEX_EVENTS = ("SessionStart SessionEnd UserPromptSubmit PreToolUse PermissionRequest PostToolUse "
                "Stop Interrupt PreModelRequest PostModelRequest").split()


def codex_config(sb):
    port = sb.ports["openai"]
    return f"""model = "gpt-stand-in"
model_provider = "standin"
approval_policy = "on-request"
sandbox_mode = "workspace-write"
check_for_update_on_startup = false

[model_providers.standin]
name = "Stand-in"
base_url = "http://127.0.0.1:{port}/v1"
wire_api = "responses"
requires_openai_auth = false

[analytics]
enabled = false

[feedback]
enabled = false

[otel]
exporter = "none"

# The curated-plugin sync and remote plugins reach github.com and chatgpt.com.
[features]
plugins = false
remote_plugin = false
apps = false
tool_suggest = false

[tui]
show_tooltips = false

[projects."{sb.project}"]
trust_level = "trusted"
"""


def codex_ui_ready(tmux):
    return tmux.wait_screen(r"Ask Codex to do anything|\? for shortcuts", 60)


def managed_daemons():
    return find_processes(r"app-server .*--managed-daemon")


def codex(sb, rep):
    check = Checker(sb, rep, "codex")
    install_work(sb)
    os.makedirs(os.path.join(sb.home, ".codex"))
    config = os.path.join(sb.home, ".codex", "config.toml")
    with open(config, "w") as f:
        f.write(codex_config(sb))
    tmux = sb.start_tmux()
    sb.start_daemon()

    # Without hooks.
    tmux.type("clear; codex")
    codex_ui_ready(tmux)
    table = process_table()
    rep.log("codex at rest: " + describe_tree(table, find_processes(r"(^|/)codex( |$)|app-server", table)))
    check.expect("seen without hooks", {"count": 1, "viaHooks": False, "hooks": "off"}, OUT_OF_PERIOD)
    tmux.type("/exit")
    ok, _ = wait_for(lambda: (not find_processes(r"node .*/\.bin/codex"), None), 15)
    daemons = managed_daemons()
    rep.log(f"after /exit: managed daemon pids {daemons}")
    check.expect("the daemon left behind is not an agent", None, OUT_OF_PERIOD,
                 during=lambda: bool(managed_daemons()), what="(orphaned app-server daemon alive)")

    # Our event log, then `duskwell connect codex`; Codex must be told to trust both.
    with open(os.path.join(sb.home, ".codex", "hooks.json"), "w") as f:
        json.dump({"hooks": {e: [{"hooks": [{"type": "command", "command": sb.event_hook("codex")}]}]
                             for e in CODEX_EVENTS}}, f)
    r = sb.duskwell("connect", "codex")
    rep.step("duskwell connect codex", r.returncode == 0, (r.stdout + r.stderr).strip())

    t = time.time()
    tmux.type("clear; codex")
    tmux.wait_screen(r"Hooks need review", 60)
    # Newer builds report the hook state per row; checked once that field exists.
    hooks_field = any("hooks" in row for row in sb.agents() if row.get("kind") == "codex")
    if hooks_field:
        check.expect("connected but not yet trusted", {"hooks": "untrusted"}, 10)
    tmux.keys("2")
    time.sleep(0.5)
    if "Hooks need review" in tmux.screen():
        tmux.keys("Enter")
    codex_ui_ready(tmux)
    trusted = [line for line in open(config).read().splitlines()
               if line.startswith("[hooks.state.") and "hooks.json:" in line]
    rep.step("trust given in Codex's own UI is recorded", any(":stop:" in line for line in trusted),
             f"{len(trusted)} trusted hook entries")
    if hooks_field:
        check.expect("connected and trusted", {"hooks": "connected"}, 5)
    start_auto(sb, rep)

    # Turn 1: a sandboxed tool (codex-linux-sandbox -> bwrap -> codex-linux-sandbox -> bash).
    tmux.type("RUN<<./work.sh 18>>")
    sb.wait_event("SessionStart", t, 30)
    ok, _ = wait_for(lambda: (bool(find_processes(work(18))), None), 20, 0.2)
    table = process_table()
    rep.log("sandboxed tool: " + describe_tree(table, find_processes(r"codex-linux-sandbox|bwrap|work\.sh 18", table)))
    check.expect("working during a sandboxed tool call, counted once", {"count": 1, "state": "working"},
                 18, during=tool_alive(work(18)), what="(tool running)")
    sb.wait_event("Stop", t, 40)

    # Turn 2: an escalated tool that asks first.
    t = time.time()
    tmux.type("ASK<<./work.sh 20 && touch approved.txt>>")
    tmux.wait_screen(r"Would you like to run the following command\?", 30)
    check.expect("waiting at the permission prompt", {"count": 1, "state": "waiting"}, IN_PERIOD)
    tmux.keys("Enter")  # "1. Yes, proceed"
    ok, _ = wait_for(lambda: (bool(find_processes(work(20))), None), 10, 0.2)
    if not ok:
        raise Abort("the approved tool never started:\n" + tmux.screen())
    check.expect("working again after approval (tool still running)", {"count": 1, "state": "working"},
                 20, during=tool_alive(work(20)), what="(tool running)")
    turn_end = sb.wait_event("Stop", t, 60)["t"]
    check.expect("idle after the turn", {"count": 1, "state": "idle", "sessions": 1}, IN_PERIOD)

    # Left at its prompt, as Claude is (Codex has no idle reminder), then the period must end.
    check.hold("still idle 70 s after the turn", {"count": 1, "state": "idle"}, turn_end + 70)
    check_period_end(sb, rep, turn_end)

    # /clear: Codex's daemon sends the old session's SessionEnd about a minute later; the UI
    # stays open and idle all along, also once its last hook record is gone.
    t = time.time()
    tmux.type("/clear")
    check.hold("a known idle session after /clear, across the late SessionEnd", {"count": 1, "state": "idle"},
               t + 95, cli_slips=1)
    late = [e for e in sb.events(t) if e.get("hook_event_name") == "SessionEnd"]
    rep.step("the late SessionEnd really came during that time", bool(late), f"{late}")

    t = time.time()
    tmux.type("/exit")
    check.expect("gone after /exit, while its daemon lives on", None, OUT_OF_PERIOD,
                 during=lambda: bool(managed_daemons()), what="(orphaned app-server daemon alive)")

    # codex exec: tools run in-process under the sandbox layers; one session.
    start_auto(sb, rep)
    p = subprocess.Popen(["codex", "exec", "--skip-git-repo-check", "RUN<<./work.sh 15>>"], env=sb.env,
                         cwd=sb.project, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                         stdin=subprocess.DEVNULL, text=True)
    ok, _ = wait_for(lambda: (bool(find_processes(work(15))), None), 30, 0.2)
    if ok:
        check.expect("codex exec: one working session", {"count": 1, "state": "working"}, 15,
                     during=tool_alive(work(15)), what="(sandboxed tool running)")
    else:
        rep.step("codex exec: one working session", False, "its tool never started")
    out, _ = p.communicate(timeout=60)
    check.expect("codex exec: gone after it ends", None, OUT_OF_PERIOD,
                 what=f"(exit {p.returncode})")
    check_network(sb, rep, "codex")


# ---------------------------------------------------------------------------- shared

def records_left(sb, kind):
    folder = os.path.join(sb.home, ".duskwell", "sessions")
    names = os.listdir(folder) if os.path.isdir(folder) else []
    return [n for n in names if n.startswith(kind + "-")]


def quit_ui(tmux, command, gone, timeout=20):
    """Types a quit command; a second Enter if the command menu took the first one."""
    tmux.type(command)
    ok, _ = wait_for(lambda: (gone(), None), 5)
    if not ok:
        tmux.keys("Enter")
        ok, _ = wait_for(lambda: (gone(), None), timeout)
    if not ok:
        raise Abort(f"{command} did not end the agent:\n" + tmux.screen())


# ---------------------------------------------------------------------------- Gemini CLI

GEMINI_READY = r"Type your message"
GEMINI_EVENTS = ("SessionStart SessionEnd BeforeAgent AfterAgent BeforeModel AfterModel BeforeToolSelection "
                 "BeforeTool AfterTool Notification PreCompress").split()
# What `duskwell connect gemini` must add, each event with one group running the hook.
GEMINI_CONNECTED = ("SessionStart SessionEnd BeforeAgent AfterAgent BeforeModel BeforeTool AfterTool "
                    "Notification").split()


def gemini_settings(sb, hooks):
    """Offline: API key auth, no usage statistics (Clearcut) and no update check (npm)."""
    settings = {"security": {"auth": {"selectedType": "gemini-api-key"}},
                "privacy": {"usageStatisticsEnabled": False},
                "telemetry": {"enabled": False},
                "general": {"enableAutoUpdate": False, "enableAutoUpdateNotification": False}}
    if hooks:
        settings["hooks"] = {e: [{"hooks": [{"type": "command", "command": sb.event_hook("gemini")}]}]
                             for e in GEMINI_EVENTS}
    with open(os.path.join(sb.home, ".gemini", "settings.json"), "w") as f:
        json.dump(settings, f, indent=2)


def gemini_alive():
    return find_processes(r"node .*/\.bin/gemini")


def gemini(sb, rep):
    check = Checker(sb, rep, "gemini")
    install_work(sb)
    os.makedirs(os.path.join(sb.home, ".gemini"))
    gemini_settings(sb, hooks=False)
    # Turn 1's tool runs unasked, turn 2's asks. (The older `tools.allowed` setting denies, not
    # asks about, every shell command it does not list.)
    os.makedirs(os.path.join(sb.home, ".gemini", "policies"))
    with open(os.path.join(sb.home, ".gemini", "policies", "work.toml"), "w") as f:
        f.write('[[rule]]\ntoolName = "run_shell_command"\ncommandPrefix = "./work.sh 18"\n'
                'decision = "allow"\npriority = 100\n')
    # Hooks only run in a trusted folder: what choosing "Trust folder" at the first start writes.
    with open(os.path.join(sb.home, ".gemini", "trustedFolders.json"), "w") as f:
        json.dump({sb.project: "TRUST_FOLDER"}, f)
    tmux = sb.start_tmux()
    sb.start_daemon()

    # Without hooks: a launcher node and the agent node it re-spawns, one agent. (Inside an
    # auto period from here on: duskwelld scans every 5 s then, which keeps the run short.)
    start_auto(sb, rep)
    tmux.type("clear; gemini")
    tmux.wait_screen(GEMINI_READY, 60)
    table = process_table()
    rep.log("gemini at rest: " + describe_tree(table, gemini_alive()))
    check.expect("seen without hooks", {"count": 1, "viaHooks": False, "hooks": "off"}, IN_PERIOD)
    quit_ui(tmux, "/quit", lambda: not gemini_alive())
    check.expect("gone after /quit (no hooks)", None, IN_PERIOD)

    gemini_settings(sb, hooks=True)
    r = sb.duskwell("connect", "gemini")
    rep.step("duskwell connect gemini", r.returncode == 0, (r.stdout + r.stderr).strip())
    with open(os.path.join(sb.home, ".gemini", "settings.json")) as f:
        hooks = json.load(f).get("hooks") or {}
    ours = f"{sb.home}/.duskwell/hook gemini"
    commands = {e: [h.get("command") for g in hooks.get(e) or [] for h in g.get("hooks") or []]
                for e in GEMINI_EVENTS}
    missing = [e for e in GEMINI_CONNECTED if commands[e].count(ours) != 1]
    lost = [e for e in GEMINI_EVENTS if sb.event_hook("gemini") not in commands[e]]
    rep.step("connect adds its hook to each event once, keeping the others", not missing and not lost,
             f"without Duskwell's hook: {missing or 'none'}; event log hook lost: {lost or 'none'}")

    t = time.time()
    tmux.type("clear; gemini")
    tmux.wait_screen(GEMINI_READY, 60)
    sb.wait_event("SessionStart", t, 20)
    start_auto(sb, rep)
    check.expect("a fresh session is a known idle session",
                 {"count": 1, "state": "idle", "viaHooks": True, "sessions": 1, "hooks": "connected"},
                 IN_PERIOD)

    # Turn 1: an allowed tool, no question.
    t = time.time()
    tmux.type("RUN<<./work.sh 18>>")
    ok, _ = wait_for(lambda: (bool(find_processes(work(18))), None), 30, 0.2)
    if not ok:
        raise Abort("the tool never started:\n" + tmux.screen())
    check.expect("working during a tool call", {"count": 1, "state": "working"}, 18,
                 during=tool_alive(work(18)), what="(tool running)")
    sb.wait_event("AfterAgent", t, 40)

    # Turn 2: the tool asks first (Notification ToolPermission); approving fires no event.
    t = time.time()
    tmux.type("RUN<<./work.sh 20>>")
    tmux.wait_screen(r"Allow once", 30)
    sb.wait_event("Notification", t, 20, notification_type="ToolPermission")
    check.expect("waiting at the approval", {"count": 1, "state": "waiting"}, IN_PERIOD)
    tmux.keys("Enter")  # "1. Allow once"
    ok, _ = wait_for(lambda: (bool(find_processes(work(20))), None), 10, 0.2)
    if not ok:
        raise Abort("the approved tool never started:\n" + tmux.screen())
    check.expect("working again after approval (tool still running)", {"count": 1, "state": "working"},
                 20, during=tool_alive(work(20)), what="(tool running)")
    turn_end = sb.wait_event("AfterAgent", t, 60)["t"]
    check.expect("idle after the turn", {"count": 1, "state": "idle", "viaHooks": True, "sessions": 1},
                 IN_PERIOD)
    check.hold("still idle 70 s after the turn", {"count": 1, "state": "idle"}, turn_end + 70)
    check_period_end(sb, rep, turn_end)

    # /quit sends SessionEnd three times, the last from an orphan; the record goes at the first.
    start_auto(sb, rep)
    t = time.time()
    quit_ui(tmux, "/quit", lambda: not gemini_alive())
    sb.wait_event("SessionEnd", t, 20)
    check.expect("gone after /quit", None, IN_PERIOD)
    rep.step("no session record left", not records_left(sb, "gemini"), str(records_left(sb, "gemini")))
    check_network(sb, rep, "gemini")


# ---------------------------------------------------------------------------- OpenCode

OPENCODE_READY = r"Ask anything"
# A plugin beside Duskwell's that writes eventlog.sh's lines itself: a child process per event
# would run in OpenCode's tree, where it could pass for a tool at work. Async and guarded
# throughout, since a plugin that throws synchronously stalls OpenCode's turns.
OPENCODE_EVENT_PLUGIN = """import { appendFileSync } from "node:fs";
const KEEP = new Set(["session.created", "session.status", "session.idle", "session.error",
                      "permission.asked", "permission.replied"]);
const write = (name, fields) => {
  try {
    const line = JSON.stringify({ hook_event_name: name, pid: process.pid, ...fields });
    appendFileSync(LOG, `${Date.now() / 1000} opencode ${line}\\n`);
  } catch {}
};
export const EventLog = async ({ directory }) => {
  write("load", { cwd: directory });
  return {
    event: async ({ event }) => {
      try {
        const p = event.properties || {};
        if (KEEP.has(event.type)) write(event.type, { session_id: p.sessionID, status: p.status && p.status.type });
      } catch {}
    },
    "tool.execute.before": async (i) => { try { write("tool.execute.before", { session_id: i.sessionID, tool_name: i.tool }); } catch {} },
    "tool.execute.after": async (i) => { try { write("tool.execute.after", { session_id: i.sessionID, tool_name: i.tool }); } catch {} },
  };
};
"""


def opencode_config(sb):
    """The chat/completions stand-in as the only provider; bash asks except for turn 1's tool."""
    port = sb.ports["openai"]
    folder = os.path.join(sb.home, ".config", "opencode")
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "opencode.json"), "w") as f:
        json.dump({"$schema": "https://opencode.ai/config.json",
                   "autoupdate": False, "share": "disabled",
                   "model": "standin/m1", "small_model": "standin/m1",
                   "enabled_providers": ["standin"],
                   "permission": {"bash": {"*": "ask", "./work.sh 18": "allow"}},
                   "provider": {"standin": {
                       "npm": "@ai-sdk/openai-compatible", "name": "Stand-in",
                       "options": {"baseURL": f"http://127.0.0.1:{port}/v1", "apiKey": "dummy"},
                       "models": {"m1": {"name": "Stand-in M1", "tool_call": True}}}}}, f, indent=2)
    # At every start OpenCode installs its plugin package into each config folder with its own
    # npm; this sends that to the stand-in, which has no such package.
    with open(os.path.join(folder, ".npmrc"), "w") as f:
        f.write(f"registry=http://127.0.0.1:{port}/npm/\n")
    return folder


def opencode_alive():
    return find_processes(r"^opencode( |$)")


def opencode(sb, rep):
    check = Checker(sb, rep, "opencode")
    install_work(sb)
    folder = opencode_config(sb)
    tmux = sb.start_tmux()
    sb.start_daemon()

    start_auto(sb, rep)  # 5-second scans from here on, as in Gemini's run
    tmux.type("clear; opencode")
    tmux.wait_screen(OPENCODE_READY, 60)
    table = process_table()
    rep.log("opencode at rest: " + describe_tree(table, opencode_alive()))
    check.expect("seen without hooks", {"count": 1, "viaHooks": False, "hooks": "off"}, IN_PERIOD)
    quit_ui(tmux, "/exit", lambda: not opencode_alive())
    check.expect("gone after /exit (no plugin)", None, IN_PERIOD)

    os.makedirs(os.path.join(folder, "plugins"), exist_ok=True)
    with open(os.path.join(folder, "plugins", "eventlog.js"), "w") as f:
        f.write(f"const LOG = {json.dumps(sb.log('events'))};\n" + OPENCODE_EVENT_PLUGIN)
    r = sb.duskwell("connect", "opencode")
    rep.step("duskwell connect opencode", r.returncode == 0, (r.stdout + r.stderr).strip())
    plugin = os.path.join(folder, "plugins", "duskwell.js")
    rep.step("connect writes its plugin", os.path.isfile(plugin), plugin)

    # The plugin's record at load makes a fresh OpenCode a known idle session.
    t = time.time()
    tmux.type("clear; opencode")
    tmux.wait_screen(OPENCODE_READY, 60)
    sb.wait_event("load", t, 30)
    start_auto(sb, rep)
    check.expect("a fresh session is a known idle session",
                 {"count": 1, "state": "idle", "viaHooks": True, "sessions": 1, "hooks": "connected"},
                 IN_PERIOD)

    # Turn 1: an allowed tool, no question.
    t = time.time()
    tmux.type("RUN<<./work.sh 18>>")
    ok, _ = wait_for(lambda: (bool(find_processes(work(18))), None), 30, 0.2)
    if not ok:
        raise Abort("the tool never started:\n" + tmux.screen())
    check.expect("working during a tool call", {"count": 1, "state": "working"}, 18,
                 during=tool_alive(work(18)), what="(tool running)")
    sb.wait_event("session.idle", t, 40)

    # Turn 2: the tool asks first (permission.asked); the session stays "busy" meanwhile.
    t = time.time()
    tmux.type("RUN<<./work.sh 20 && touch approved.txt>>")
    sb.wait_event("permission.asked", t, 30)
    check.expect("waiting at the approval", {"count": 1, "state": "waiting"}, IN_PERIOD)
    tmux.keys("Enter")  # "Allow once"
    ok, _ = wait_for(lambda: (bool(find_processes(work(20))), None), 10, 0.2)
    if not ok:
        raise Abort("the approved tool never started:\n" + tmux.screen())
    check.expect("working again after approval (tool still running)", {"count": 1, "state": "working"},
                 20, during=tool_alive(work(20)), what="(tool running)")
    turn_end = sb.wait_event("session.idle", t, 60)["t"]
    check.expect("idle after the turn", {"count": 1, "state": "idle", "viaHooks": True, "sessions": 1},
                 IN_PERIOD)
    # Open at its prompt OpenCode still uses a few % of a core; the plugin, not that, decides.
    check.hold("still idle 70 s after the turn", {"count": 1, "state": "idle"}, turn_end + 70)
    check_period_end(sb, rep, turn_end)

    # /exit sends no event: the record must go with the process.
    start_auto(sb, rep)
    quit_ui(tmux, "/exit", lambda: not opencode_alive())
    check.expect("gone after /exit", None, IN_PERIOD)
    rep.step("no session record left", not records_left(sb, "opencode"), str(records_left(sb, "opencode")))
    check_network(sb, rep, "opencode")


# ---------------------------------------------------------------------------- main

def isolate(argv):
    """Re-runs this script as pid 1's child in new pid, mount and network namespaces."""
    base = ["unshare", "--pid", "--fork", "--kill-child", "--mount-proc", "--net"]
    if os.geteuid() != 0:
        base.append("--map-root-user")
    probe = subprocess.run(base + ["true"], capture_output=True)
    if probe.returncode != 0:
        print("conformance: no namespaces here (" + probe.stderr.decode().strip() +
              "); running in place: other agents on this machine can disturb the counts", flush=True)
        return None
    # bash as pid 1 reaps the orphans (Codex's daemon is one) while it waits.
    cmd = base + ["bash", "-c", '"$@" & wait $!', "pid1", sys.executable, os.path.abspath(__file__), *argv]
    return subprocess.call(cmd, env=dict(os.environ, DUSKWELL_CONFORMANCE_INNER="1"))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("agent", choices=[*TITLES, "all"],
                        help="all: every scenario, two side by side at a time")
    parser.add_argument("--bin", required=True, help="folder with duskwell-cli, duskwell-hook, duskwelld")
    parser.add_argument("--claude", help="Claude Code version (default: the pinned one)")
    parser.add_argument("--codex", help="Codex version (default: the pinned one)")
    parser.add_argument("--gemini", help="Gemini CLI version (default: the pinned one)")
    parser.add_argument("--opencode", help="OpenCode version (default: the pinned one)")
    parser.add_argument("--keep", action="store_true", help="keep the temporary HOME and logs")
    parser.add_argument("--in-place", action="store_true", help="no namespaces")
    args = parser.parse_args()

    if args.agent == "all":
        rest = [a for a in sys.argv[1:] if a != "all"]
        code = 0
        for pair in PAIRS:
            t0 = time.time()
            runs = [subprocess.Popen([sys.executable, os.path.abspath(__file__), agent, *rest])
                    for agent in pair]
            code = max([code] + [r.wait() for r in runs])
            print(f"conformance: {' + '.join(pair)} took {time.time() - t0:.0f} s", flush=True)
        return code
    if not os.environ.get("DUSKWELL_CONFORMANCE_INNER") and not args.in_place:
        code = isolate(sys.argv[1:])
        if code is not None:
            return code
    else:
        try:
            bring_loopback_up()
        except OSError:
            pass

    version = getattr(args, args.agent) or pins()[args.agent][1]
    folder = agent_folder(args.agent, version)
    agent_bin = os.path.join(folder, "node_modules", ".bin")
    if not os.access(os.path.join(agent_bin, args.agent), os.X_OK):
        print(f"conformance: {args.agent} {version} is not installed in {folder}; "
              f"run scripts/install-agents", flush=True)
        return 1
    rep = Report(args.agent)
    rep.log(f"{pins()[args.agent][0]}@{version} from {folder}")
    sb = Sandbox(args.agent, os.path.abspath(args.bin), agent_bin, TIME_SCALE)
    try:
        {"claude": claude, "codex": codex, "gemini": gemini, "opencode": opencode}[args.agent](sb, rep)
    except Abort as e:
        rep.step("scenario could go on", False, str(e))
    except Exception as e:  # a crash of the suite itself is a failure, with its trace
        import traceback
        traceback.print_exc()
        rep.step("scenario ran to the end", False, repr(e))
    finally:
        failed = any(not ok for _, ok, _ in rep.results)
        if failed:
            rep.log("logs kept in " + sb.logs)
            for e in sb.events():
                print("  event", json.dumps(e), flush=True)
            print("  duskwelld log:\n" + sb.daemon_log()[-3000:], flush=True)
        left = sb.close(keep=args.keep or failed)
    rep.step("nothing of the scenario left running", not left, "; ".join(left) or "none")
    return rep.finish()


if __name__ == "__main__":
    sys.exit(main())

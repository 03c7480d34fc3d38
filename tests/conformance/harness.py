"""The pieces every conformance scenario uses: a temporary HOME with the stand-in servers and
the refusing proxy, the real Duskwell binaries, a private tmux server to drive an agent's UI,
a view of the process table, and steps that are reported one by one.
"""

import fcntl
import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time

import standin

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))


class Abort(Exception):
    """The scenario cannot go on (the agent's UI did not get where it had to)."""


def wait_for(check, timeout, interval=0.5):
    """Calls check() until it answers (True, seen) or the time is up; answers the last pair."""
    deadline = time.time() + timeout
    while True:
        ok, seen = check()
        if ok or time.time() >= deadline:
            return ok, seen
        time.sleep(interval)


def pins():
    out = {}
    with open(os.path.join(HERE, "agents.pins")) as f:
        for line in f:
            words = line.split()
            if len(words) == 3 and not words[0].startswith("#"):
                out[words[0]] = (words[1], words[2])
    return out


def agent_folder(name, version=None):
    """The install folder scripts/install-agents uses for this agent's version."""
    cmd = [os.path.join(ROOT, "scripts", "install-agents"), "--print", name]
    if version:
        cmd += [f"--{name}", version]
    return subprocess.run(cmd, check=True, capture_output=True, text=True).stdout.strip()


def bring_loopback_up():
    """A new network namespace starts with `lo` down."""
    siocgifflags, siocsifflags, iff_up = 0x8913, 0x8914, 0x1
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    try:
        req = struct.pack("16sH14s", b"lo", 0, b"\0" * 14)
        flags = struct.unpack("16sH14s", fcntl.ioctl(s, siocgifflags, req))[1]
        fcntl.ioctl(s, siocsifflags, struct.pack("16sH14s", b"lo", flags | iff_up, b"\0" * 14))
    finally:
        s.close()


# ---------------------------------------------------------------------------- processes

def process_table():
    """pid -> {ppid, comm, exe, argv} for every process we can read."""
    table = {}
    for name in os.listdir("/proc"):
        if not name.isdigit():
            continue
        try:
            with open(f"/proc/{name}/stat") as f:
                stat = f.read()
            with open(f"/proc/{name}/cmdline", "rb") as f:
                argv = [a.decode(errors="replace") for a in f.read().split(b"\0")[:-1]]
        except OSError:
            continue
        try:
            exe = os.readlink(f"/proc/{name}/exe")
        except OSError:
            exe = ""
        rest = stat[stat.rindex(")") + 2:].split()
        table[int(name)] = {"ppid": int(rest[1]), "state": rest[0],
                            "comm": stat[stat.index("(") + 1:stat.rindex(")")],
                            "exe": exe, "argv": argv}
    return table


def find_processes(pattern, table=None):
    """Live (not zombie) pids whose command line matches the regular expression."""
    table = table or process_table()
    rx = re.compile(pattern)
    return [pid for pid, p in table.items()
            if p["state"] != "Z" and rx.search(" ".join(p["argv"]))]


def describe_tree(table, pids):
    lines = []
    for pid in sorted(pids):
        p = table.get(pid)
        if p:
            lines.append(f"{pid}<-{p['ppid']} {p['comm']} {os.path.basename(p['exe'])} "
                         f"{' '.join(p['argv'])[:100]}")
    return "; ".join(lines)


# ---------------------------------------------------------------------------- report

class Report:
    def __init__(self, scenario):
        self.scenario = scenario
        self.t0 = time.time()
        self.results = []

    def log(self, text):
        print(f"[{self.scenario} {time.time() - self.t0:6.1f}s] {text}", flush=True)

    def step(self, name, ok, detail=""):
        self.results.append((name, bool(ok), detail))
        self.log(f"{'PASS' if ok else 'FAIL'} {name}" + (f" -- {detail}" if detail else ""))
        return ok

    def finish(self):
        failed = [r for r in self.results if not r[1]]
        self.log(f"{len(self.results) - len(failed)} of {len(self.results)} steps passed")
        for name, _, detail in failed:
            print(f"  FAILED {name}: {detail}", flush=True)
        return 1 if failed or not self.results else 0


# ---------------------------------------------------------------------------- tmux

class Tmux:
    """A private tmux server with one window running a login-free bash in `cwd`."""

    def __init__(self, socket_path, cwd, env):
        self.base = ["tmux", "-S", socket_path]
        self.env = env
        self.run("new-session", "-d", "-s", "main", "-x", "160", "-y", "50", "-c", cwd,
                 "bash --norc --noprofile")

    def run(self, *args):
        return subprocess.run(self.base + list(args), env=self.env, check=True,
                              capture_output=True, text=True).stdout

    def keys(self, *keys):
        self.run("send-keys", "-t", "main", *keys)

    def type(self, text, enter=True):
        self.run("send-keys", "-t", "main", "-l", "--", text)
        if enter:
            time.sleep(0.6)  # a key right after a burst of text can count as part of a paste
            self.keys("Enter")

    def screen(self):
        return self.run("capture-pane", "-p", "-t", "main")

    def wait_screen(self, pattern, timeout):
        rx = re.compile(pattern)
        ok, text = wait_for(lambda: (bool(rx.search(s := self.screen())), s), timeout, 0.3)
        if not ok:
            raise Abort(f"the screen never showed /{pattern}/:\n{text}")
        return text

    def kill(self):
        subprocess.run(self.base + ["kill-server"], env=self.env, capture_output=True)


# ---------------------------------------------------------------------------- sandbox

# The agents switch off their own traffic with these (Gemini CLI in its settings file); the
# proxy catches the rest.
QUIET_ENV = {
    "DISABLE_TELEMETRY": "1",
    "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC": "1",
    "DISABLE_AUTOUPDATER": "1",
    "DISABLE_ERROR_REPORTING": "1",
    "DISABLE_BUG_COMMAND": "1",
    "CLAUDE_CODE_DISABLE_OFFICIAL_MARKETPLACE_AUTOINSTALL": "1",
    # Codex's app-server daemon retries a remote-control websocket to chatgpt.com every ~5 min.
    "CODEX_INTERNAL_APP_SERVER_REMOTE_CONTROL_DISABLED": "1",
    # OpenCode's models.dev catalogue and update check.
    "OPENCODE_DISABLE_MODELS_FETCH": "1",
    "OPENCODE_DISABLE_AUTOUPDATE": "1",
}


class Sandbox:
    """A temporary HOME with its own servers, Duskwell binaries and a running duskwelld."""

    def __init__(self, scenario, bin_dir, agent_bin, time_scale):
        self.root = tempfile.mkdtemp(prefix=f"duskwell-conformance-{scenario}-")
        self.home = os.path.join(self.root, "home")
        self.project = os.path.join(self.home, "project")
        self.bin = os.path.join(self.root, "bin")
        self.logs = os.path.join(self.root, "logs")
        for d in (self.project, self.bin, self.logs, os.path.join(self.home, ".duskwell")):
            os.makedirs(d, exist_ok=True)
        self.time_scale = time_scale
        # The terminal command is installed as `duskwell`, beside its hook program.
        for src, dst in (("duskwell-cli", "duskwell"), ("duskwell-hook", "duskwell-hook"),
                         ("duskwelld", "duskwelld")):
            path = os.path.join(bin_dir, src)
            if not os.access(path, os.X_OK):
                raise Abort(f"{path} is missing: build the project first")
            os.symlink(path, os.path.join(self.bin, dst))
        self._stand_ins()
        self.ports = {k: standin.start_server(k, self.log(k))
                      for k in ("anthropic", "openai", "gemini", "ntfy")}
        proxy = f"http://127.0.0.1:{standin.start_proxy(self.log('proxy'))}"
        self.env = {
            "HOME": self.home, "USER": os.environ.get("USER", "user"),
            "PATH": os.pathsep.join([self.bin, agent_bin, "/usr/local/bin", "/usr/bin", "/bin"]),
            "SHELL": "/bin/bash", "TERM": "xterm-256color", "LANG": "C.UTF-8",
            "TMPDIR": os.path.join(self.root, "tmp"),
            "ANTHROPIC_BASE_URL": f"http://127.0.0.1:{self.ports['anthropic']}",
            "ANTHROPIC_API_KEY": "sk-ant-dummy",
            "GOOGLE_GEMINI_BASE_URL": f"http://127.0.0.1:{self.ports['gemini']}",
            "GEMINI_API_KEY": "dummy",
            "NO_PROXY": "127.0.0.1,localhost", "no_proxy": "127.0.0.1,localhost",
            "DUSKWELL_TEST_SUDO": os.path.join(self.bin, "sudo"),
            "DUSKWELL_TEST_HELPER": os.path.join(self.bin, "duskwell-power"),
            "DUSKWELL_TEST_SLEEP": os.path.join(self.bin, "sleep-now"),
            "DUSKWELL_TEST_NTFY": f"http://127.0.0.1:{self.ports['ntfy']}",
            "DUSKWELL_TEST_FEED": "http://127.0.0.1:9/version.json",
        }
        for var in ("HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"):
            self.env[var] = self.env[var.lower()] = proxy
        self.env.update(QUIET_ENV)
        os.makedirs(self.env["TMPDIR"], exist_ok=True)
        with open(os.path.join(self.home, ".duskwell", "settings.json"), "w") as f:
            json.dump({"phone.enabled": True}, f)
        self.daemon = None
        self.tmux = None

    def log(self, name):
        return os.path.join(self.logs, f"{name}.log")

    def _stand_ins(self):
        """Recording stand-ins for sudo, the power helper and the sleep command."""
        scripts = {
            "sudo": f"#!/bin/sh\nprintf '%s\\n' \"$*\" >> '{self.log('sudo')}'\nexit 0\n",
            "sleep-now": f"#!/bin/sh\nprintf '%s\\n' \"$*\" >> '{self.log('sleep')}'\nexit 0\n",
            "duskwell-power": "#!/bin/sh\n# stands in for the installed helper\n",
        }
        for name, text in scripts.items():
            path = os.path.join(self.bin, name)
            with open(path, "w") as f:
                f.write(text)
            os.chmod(path, 0o755)

    # -- Duskwell

    def duskwell(self, *args, timeout=30):
        return subprocess.run([os.path.join(self.bin, "duskwell"), *args], env=self.env,
                              capture_output=True, text=True, timeout=timeout, cwd=self.home)

    def agents(self):
        r = self.duskwell("agents", "--json")
        try:
            return json.loads(r.stdout)
        except ValueError:
            raise Abort(f"duskwell agents --json printed no JSON: {r.stdout!r} {r.stderr!r}")

    def status(self):
        try:
            with open(os.path.join(self.home, ".duskwell", "status.json")) as f:
                return json.load(f)
        except (OSError, ValueError):
            return None

    def start_daemon(self):
        env = dict(self.env, DUSKWELL_TEST_TIME_SCALE=str(self.time_scale))
        out = open(self.log("duskwelld"), "a")
        self.daemon = subprocess.Popen([os.path.join(self.bin, "duskwelld"), "--log"], env=env,
                                       stdout=out, stderr=subprocess.STDOUT,
                                       stdin=subprocess.DEVNULL, cwd=self.home)
        sock = os.path.join(self.home, ".duskwell", "control.sock")
        ok, _ = wait_for(lambda: (os.path.exists(sock) or self.daemon.poll() is not None, None), 15)
        if not os.path.exists(sock):
            raise Abort(f"duskwelld did not start: {self.read(self.log('duskwelld'))}")

    def daemon_log(self):
        return self.read(self.log("duskwelld"))

    def alerts(self):
        """The phone alerts duskwelld published: (title, message) pairs."""
        out = []
        for rec in self.records("ntfy"):
            s = rec.get("summary") or {}
            if rec.get("method") == "POST" and (s.get("title") or s.get("message")):
                out.append((s.get("title") or "", s.get("message") or ""))
        return out

    # -- logs

    @staticmethod
    def read(path):
        try:
            with open(path) as f:
                return f.read()
        except OSError:
            return ""

    def records(self, name):
        out = []
        for line in self.read(self.log(name)).splitlines():
            try:
                out.append(json.loads(line))
            except ValueError:
                pass
        return out

    def events(self, since=0.0):
        """The agents' events (eventlog.sh lines) from `since` on, a few fields of each."""
        keep = ("hook_event_name", "session_id", "notification_type", "reason", "source", "tool_name",
                "status")
        out = []
        for line in self.read(self.log("events")).splitlines():
            try:
                t, agent, text = line.split(" ", 2)
                event = json.loads(text)
                t = float(t)
            except ValueError:
                continue
            if t >= since:
                out.append(dict({k: event[k] for k in keep if k in event}, t=round(t, 3), agent=agent))
        return out

    def wait_event(self, name, since, timeout, **fields):
        def check():
            for e in self.events(since):
                if e.get("hook_event_name") == name and all(e.get(k) == v for k, v in fields.items()):
                    return True, e
            return False, None
        ok, e = wait_for(check, timeout)
        if not ok:
            raise Abort(f"no {name} {fields} event within {timeout} s; events: {self.events(since)}")
        return e

    def event_hook(self, agent):
        return f"{os.path.join(HERE, 'eventlog.sh')} {agent} {self.log('events')}"

    def proxy_attempts(self):
        """(request line, who sent it) for every connection the proxy refused."""
        out = []
        for r in self.records("proxy"):
            who = r.get("from") or {}
            out.append((r.get("request"), " ".join(who.get("argv") or []) or "?"))
        return out

    # -- tmux

    def start_tmux(self):
        self.tmux = Tmux(os.path.join(self.root, "tmux.sock"), self.project, self.env)
        return self.tmux

    # -- the end

    def close(self, keep):
        if self.tmux:
            self.tmux.kill()
        if self.daemon and self.daemon.poll() is None:
            self.daemon.terminate()
            try:
                self.daemon.wait(10)
            except subprocess.TimeoutExpired:
                self.daemon.kill()
        # Whatever the agents left running from this HOME (Codex's daemon outlives its UI).
        for pid in self.leftovers():
            try:
                os.kill(pid, signal.SIGKILL)
            except OSError:
                pass
        ok, left = wait_for(lambda: (not (left := self.leftovers()), left), 5, 0.2)
        table = process_table()
        if not keep:
            shutil.rmtree(self.root, ignore_errors=True)
        return [describe_tree(table, [pid]) or str(pid) for pid in left]

    def leftovers(self):
        """Processes of this sandbox: run from it, or with its HOME in their environment."""
        mine = f"HOME={self.home}".encode()
        out = []
        for pid, p in process_table().items():
            if pid == os.getpid() or p["state"] == "Z":
                continue
            try:
                with open(f"/proc/{pid}/environ", "rb") as f:
                    env = f.read().split(b"\0")
            except OSError:
                env = []
            if self.root in p["exe"] or any(self.root in a for a in p["argv"][:1]) or mine in env:
                out.append(pid)
        return out

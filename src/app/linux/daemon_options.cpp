#include "daemon_options.h"

namespace duskwell {

DaemonOptions parseDaemonOptions(const std::vector<std::string>& args) {
    DaemonOptions o;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--help" || a == "-h") {
            o.help = true;
        } else if (a == "--version") {
            o.version = true;
        } else if (a == "--log") {
            o.noDashboard = true;
        } else if (a == "--attach") {
            o.attach = true;
        } else if (a == "--restore") {
            o.restoreOnly = true;
        } else if (a == "--open-url") {
            if (i + 1 >= args.size()) {
                o.error = "--open-url needs a URL";
                return o;
            }
            o.openURL = args[++i];
        } else if (a.rfind("--open-url=", 0) == 0) {
            o.openURL = a.substr(11);
        } else if (a.rfind("duskwell:", 0) == 0 && !o.openURL) {
            o.openURL = a;
        } else {
            o.error = "unknown argument: " + a;
            return o;
        }
    }
    return o;
}

std::string daemonHelpText() {
    return R"(usage: duskwelld [--log] [--attach] [--open-url URL] [--restore] [--help] [--version]

Keeps this machine awake (also with the lid closed) while AI coding agents work, and lets
it sleep when they are done, when a timer runs out, when the battery gets low or when it
gets too hot. One duskwelld runs per user.

On a terminal it shows a live dashboard; otherwise (a systemd user service, a pipe) it
writes one plain line per change of state, for the journal. Started on a terminal while
another duskwelld runs (for instance the user service), it shows that one's dashboard:
q closes the dashboard and leaves the service running, Q stops the service.
NO_COLOR switches colours off; TERM=dumb gets plain lines instead of a dashboard.

Options:
  --open-url URL  hand a duskwell:// link to the running duskwelld (exit 0 when handled,
                  1 otherwise), or handle it at start when none runs
  --log           no dashboard: log lines even on a terminal
  --attach        only the running duskwelld's dashboard (`duskwell dashboard`); exit 1
                  when none runs
  --restore       give back power settings a crashed run left changed, then exit (the
                  user service runs it after every stop; does nothing while one runs)
  --help          this text
  --version       the version

Dashboard keys, main page:
  space   start or stop (the hero button)
  a t u   mode: AI Auto, Timer, Until
  1-5 0   timer presets 30m 1h 2h 4h 8h; 0 is no limit (Timer mode)
  + >     extend: the first and second button of the extend row
  [ ]     Until mode: the time a quarter hour earlier / later; Enter applies
  c       connect the agent the hint names
  d       turn the screen off (Linux: says where to do it instead)
  s       settings
Dashboard keys, settings page:
  1-9     agent integration switches, in the order shown
  m l h o Max performance, Lock when lid closes, Heat protection, Open at login
  [ ]     battery guard: lower / higher
  x       send a test alert to the phone
  i       install the terminal command
  w       install or remove the power helper
  n       notification settings (Linux: says where they are)
  j k     scroll (also the arrow keys)
  Esc b   back to the main page
Both pages:
  p       phone alerts on/off (the settings page shows the QR code to scan)
  q       quit: stops a running period first (attached: closes the dashboard only)
  Q       attached: stop the service
  Ctrl-C  the same as q

Signals: SIGTERM, SIGINT and SIGHUP stop a running period (restoring sleep and power
settings) and exit with status 0. logind's power-off notice stops the period as well.

Files: ~/.duskwell/settings.json (settings), ~/.duskwell/status.json (status),
~/.duskwell/control.sock (control socket), ~/.duskwell/duskwelld.lock (one per user).
)";
}

}  // namespace duskwell

#pragma once
// Real duskwelld processes in a temporary HOME, with recording stand-ins for the privileged
// and sleep commands (DUSKWELL_TEST_SUDO / _HELPER / _SLEEP), a fast test clock
// (DUSKWELL_TEST_TIME_SCALE) and bounded waits. Every process a test starts is killed and
// reaped by its RAII owner, also when the test fails half-way.
#include <filesystem>
#include <memory>

#include <nlohmann/json.hpp>

#include "process_support.h"

namespace duskwell::itest {

namespace fs = std::filesystem;

// A temporary HOME with the stand-ins, the environment that points duskwelld at them, and
// readers for what they recorded.
class DaemonHome {
public:
    explicit DaemonHome(const std::string& ntfyURL = "", double timeScale = 0) {
        fs::create_directories(support());
        fs::create_directories(bin());
        script("sudo", "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" + calls() + "'\nexit 0\n");
        script("sleep-now", "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" + sleeps() + "'\nexit 0\n");
        testing::writeFile(helper(), "#!/bin/sh\n# stands in for the installed helper\n");
        // The password prompt: records the root script; a removal takes the helper away.
        script("admin", "#!/bin/sh\nprintf '%s\\n' \"$3\" >> '" + admins() + "'\ncase \"$3\" in '/bin/rm -f '*) rm -f '" +
                            helper() + "' ;; *) printf '#!/bin/sh\\n' > '" + helper() + "' ;; esac\n");
        env_.set("HOME", home());
        env_.set("DUSKWELL_TEST_SUDO", bin() + "/sudo");
        env_.set("DUSKWELL_TEST_HELPER", helper());
        env_.set("DUSKWELL_TEST_SLEEP", bin() + "/sleep-now");
        env_.set("DUSKWELL_TEST_ADMIN", bin() + "/admin");
        env_.set("DUSKWELL_TEST_NTFY", ntfyURL.empty() ? "http://127.0.0.1:9" : ntfyURL);
        env_.set("DUSKWELL_TEST_FEED", "http://127.0.0.1:9/version.json");
        if (timeScale > 0) env_.set("DUSKWELL_TEST_TIME_SCALE", std::to_string(timeScale));
        // Never the desktop's session bus: a daemon under test must not show up in its tray.
        env_.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home() + "/no-session-bus");
        env_.set("LANG", "C");
        env_.set("LC_ALL", "");
        env_.set("LANGUAGE", "");
    }

    std::string home() const { return dir_.path(); }
    std::string support() const { return home() + "/.duskwell"; }
    std::string bin() const { return home() + "/stand-ins"; }
    std::string helper() const { return bin() + "/duskwell-power"; }
    std::string calls() const { return bin() + "/sudo-calls.log"; }
    std::string sleeps() const { return bin() + "/sleep-calls.log"; }
    std::string admins() const { return bin() + "/admin-scripts.log"; }
    std::string daemonLog() const { return home() + "/duskwelld.log"; }

    void writeSettings(const nlohmann::json& settings) const {
        testing::writeFile(support() + "/settings.json", settings.dump());
    }
    std::optional<nlohmann::json> settings() const { return readJson(support() + "/settings.json"); }
    std::optional<nlohmann::json> status() const { return readJson(support() + "/status.json"); }

    // The helper verbs the stand-in sudo was asked to run ("lid-on", "lid-off", ...), in
    // order; "version" probes are left out.
    std::vector<std::string> helperVerbs() const {
        std::vector<std::string> verbs;
        const std::string prefix = "-n " + helper() + " ";
        std::string text = testing::readFile(calls()).value_or("");
        for (std::size_t at; (at = text.find('\n')) != std::string::npos; text.erase(0, at + 1)) {
            const std::string line = text.substr(0, at);
            if (line.rfind(prefix, 0) != 0) continue;
            const std::string verb = line.substr(prefix.size());
            if (verb != "version") verbs.push_back(verb);
        }
        return verbs;
    }
    int count(const std::string& verb) const {
        int n = 0;
        for (const auto& v : helperVerbs()) n += v == verb;
        return n;
    }

    // Starts duskwelld (no terminal: log mode) and waits until its control socket answers.
    std::unique_ptr<Process> startDaemon(const std::vector<std::string>& extra = {}) const {
        std::vector<std::string> argv{binary("duskwelld")};
        argv.insert(argv.end(), extra.begin(), extra.end());
        auto p = std::make_unique<Process>(argv, Launch{daemonLog()});
        waitFor([&] { return fs::exists(support() + "/control.sock") || !p->running(); }, 10);
        return p;
    }
    // The terminal command, its errors apart from its output.
    RunResult cli(std::vector<std::string> words) const {
        words.insert(words.begin(), binary("duskwell-cli"));
        return run(words, bin(), {.stderrTo = Stderr::apart});
    }

private:
    static std::optional<nlohmann::json> readJson(const std::string& path) {
        auto j = nlohmann::json::parse(testing::readFile(path).value_or(""), nullptr, false);
        if (j.is_discarded()) return std::nullopt;
        return j;
    }
    void script(const std::string& name, const std::string& text) const {
        testing::writeFile(bin() + "/" + name, text);
        fs::permissions(bin() + "/" + name, fs::perms::owner_all);
    }

    testing::TempDir dir_;
    EnvScope env_;
};

// A stand-in agent: a copy of /bin/sh named "claude" spinning a busy loop. SIGSTOP makes
// it quiet; it is killed when the owner goes.
class BusyAgent {
public:
    explicit BusyAgent(const std::string& folder) : process_(command(folder), Launch{folder + "/agent.log"}) {}
    void quiet() { process_.signal(SIGSTOP); }

private:
    static std::vector<std::string> command(const std::string& folder) {
        const std::string exe = folder + "/claude";
        fs::copy_file("/bin/sh", exe, fs::copy_options::overwrite_existing);
        fs::permissions(exe, fs::perms::owner_all);
        return {exe, "-c", "while :; do :; done"};
    }
    Process process_;
};

}  // namespace duskwell::itest

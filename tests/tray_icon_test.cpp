// The tray icon end to end: a private session bus (dbus-daemon), a stand-in tray host
// (tests/dbus/fake_watcher.py, python3-dbus) and the real duskwelld in a temporary HOME.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "daemon_fixture.h"
#include "private_bus.h"

namespace duskwell::itest {
namespace {

using json = nlohmann::json;

const std::string kScript = std::string(DUSKWELL_SOURCE_DIR) + "/tests/dbus/fake_watcher.py";

// The stand-in tray host; what it saw, one line per event.
class Watcher {
public:
    explicit Watcher(const std::string& record)
        : record_(record), process_({kSystemPython, kScript, "watch", record}, Launch{record + ".log"}) {
        waitFor([&] { return seen("ready"); }, 10);
    }
    bool seen(const std::string& line) const {
        const std::string text = testing::readFile(record_).value_or("");
        return text.find(line + "\n") != std::string::npos;
    }

private:
    std::string record_;
    Process process_;
};

class TrayIconTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!busToolsPresent()) {
            GTEST_SKIP() << "needs dbus-daemon and /usr/bin/python3 with python3-dbus and gi";
        }
        bus.emplace(home.home(), "session-bus");
        env.set("DBUS_SESSION_BUS_ADDRESS", bus->address());
    }

    json tool(const std::vector<std::string>& words) const {
        std::vector<std::string> argv{kSystemPython, kScript};
        argv.insert(argv.end(), words.begin(), words.end());
        const RunResult r = run(argv, home.bin(), {.stderrTo = Stderr::apart});
        EXPECT_EQ(r.status, 0) << r.errors;
        return json::parse(r.output.empty() ? "null" : r.output, nullptr, false);
    }
    json props() const { return tool({"props", service}); }
    std::vector<std::string> labels() const {
        std::vector<std::string> out;
        for (const auto& e : tool({"layout", service})) {
            out.push_back(e["type"] == "separator" ? "---" : e["label"].get<std::string>());
        }
        return out;
    }
    void click(const std::string& label) const {
        for (const auto& e : tool({"layout", service})) {
            if (e["label"] == label) {
                tool({"click", service, std::to_string(e["id"].get<int>())});
                return;
            }
        }
        ADD_FAILURE() << "no menu item " << label;
    }
    std::unique_ptr<Process> startDaemon() {
        auto daemon = home.startDaemon();
        service = "org.kde.StatusNotifierItem-" + std::to_string(daemon->pid()) + "-1";
        waitFor([&] { return log().find("tray:") != std::string::npos; }, 10);
        return daemon;
    }
    // A build without libsystemd has no tray, by design.
    bool builtWithoutTray() const { return log().find("tray: built without D-Bus") != std::string::npos; }
    bool active() const {
        const auto s = home.status();
        return s && s->value("active", false);
    }
    std::string log() const { return testing::readFile(home.daemonLog()).value_or(""); }

    DaemonHome home;
    std::optional<PrivateBus> bus;
    EnvScope env;
    std::string service;
};

TEST_F(TrayIconTest, RegistersFollowsTheStateRunsItsMenuAndComesBackForANewHost) {
    // A stand-in terminal records how the dashboard is opened.
    const std::string terminals = home.home() + "/terminals";
    fs::create_directories(terminals);
    testing::writeFile(terminals + "/xdg-terminal-exec",
                       "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" + terminals + "/opened'\n");
    fs::permissions(terminals + "/xdg-terminal-exec", fs::perms::owner_all);
    env.set("PATH", terminals + ":" + std::string(std::getenv("PATH")));

    auto watcher = std::make_unique<Watcher>(home.home() + "/host1");
    auto daemon = startDaemon();
    if (builtWithoutTray()) GTEST_SKIP() << "built without libsystemd";
    ASSERT_TRUE(waitFor([&] { return watcher->seen("registered " + service); }, 10)) << log();

    json p = props();
    EXPECT_EQ(p["Title"], "Duskwell");
    EXPECT_EQ(p["IconName"], "weather-clear-night");
    EXPECT_EQ(p["ToolTip"][2], "Duskwell: Idle");
    EXPECT_EQ(p["Menu"], "/MenuBar");
    EXPECT_EQ(p["ItemIsMenu"], false);
    EXPECT_EQ(labels(), (std::vector<std::string>{"Until AI tasks finish", "---", "30m", "1h", "2h", "4h", "8h", "---",
                                                  "Turn off screen", "Open dashboard…", "---", "Quit Duskwell"}));

    // A menu click starts a period; the item and the menu follow, and say so.
    click("1h");
    ASSERT_TRUE(waitFor([&] { return active(); }, 10)) << log();
    EXPECT_EQ(home.status()->value("mode", ""), "timer");
    ASSERT_TRUE(waitFor([&] { return props()["IconName"] == "weather-clear"; }, 5));
    p = props();
    EXPECT_THAT(p["Title"].get<std::string>(), ::testing::MatchesRegex("Duskwell (1:00|60m|59m)"));
    EXPECT_EQ(p["ToolTip"][2], "Duskwell: Running with the lid closed");
    const auto menu = labels();
    ASSERT_EQ(menu.size(), 9u);
    EXPECT_THAT(menu[0], ::testing::EndsWith(" left"));
    EXPECT_EQ(std::vector<std::string>(menu.begin() + 1, menu.end()),
              (std::vector<std::string>{"Stop", "Extend 30 min", "Extend 1 hour", "---", "Turn off screen",
                                        "Open dashboard…", "---", "Quit Duskwell"}));
    EXPECT_TRUE(waitFor([&] { return watcher->seen("signal LayoutUpdated") && watcher->seen("signal NewIcon"); }, 5));

    // A left click toggles: the period stops.
    tool({"activate", service});
    ASSERT_TRUE(waitFor([&] { return !active(); }, 10)) << log();
    EXPECT_TRUE(waitFor([&] { return props()["IconName"] == "weather-clear-night"; }, 5));

    click("Open dashboard…");
    EXPECT_TRUE(waitFor([&] { return testing::readFile(terminals + "/opened") == "duskwell dashboard\n"; }, 5));

    // The host goes and a new one comes: the item registers with it.
    watcher.reset();
    watcher = std::make_unique<Watcher>(home.home() + "/host2");
    EXPECT_TRUE(waitFor([&] { return watcher->seen("registered " + service); }, 10)) << log();

    click("Quit Duskwell");
    const auto status = daemon->wait(10);
    ASSERT_TRUE(status && WIFEXITED(*status)) << log();
    EXPECT_EQ(WEXITSTATUS(*status), 0);

    // In Korean, the same menu in Korean.
    env.set("LANGUAGE", "ko");
    daemon = startDaemon();
    ASSERT_TRUE(waitFor([&] { return watcher->seen("registered " + service); }, 10)) << log();
    EXPECT_EQ(labels(), (std::vector<std::string>{"AI 작업 끝날 때까지", "---", "30분", "1시간", "2시간", "4시간", "8시간",
                                                  "---", "화면 끄기", "대시보드 열기…", "---", "Duskwell 종료"}));
    EXPECT_EQ(props()["ToolTip"][2], "Duskwell: 대기 중");
}

TEST_F(TrayIconTest, WithoutAHostOrABusTheDaemonRunsAndSaysSoOnce) {
    auto daemon = startDaemon();
    if (builtWithoutTray()) GTEST_SKIP() << "built without libsystemd";
    ASSERT_TRUE(waitFor([&] { return log().find("tray: no tray host") != std::string::npos; }, 10)) << log();

    // A host that starts later gets the item.
    Watcher watcher(home.home() + "/host");
    EXPECT_TRUE(waitFor([&] { return watcher.seen("registered " + service); }, 10)) << log();
    ASSERT_EQ(daemon->terminate(), 0);

    env.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home.home() + "/no-bus");
    daemon = startDaemon();
    ASSERT_TRUE(daemon->running()) << log();
    EXPECT_TRUE(waitFor([&] { return log().find("tray: no session bus") != std::string::npos; }, 10)) << log();
    auto count = [&](const std::string& piece) {
        const std::string text = log();
        std::size_t n = 0;
        for (std::size_t at = 0; (at = text.find(piece, at)) != std::string::npos; ++at) ++n;
        return n;
    };
    EXPECT_EQ(count("tray: no tray host"), 1u) << log();
    EXPECT_EQ(count("tray: no session bus"), 1u) << log();
}

}  // namespace
}  // namespace duskwell::itest

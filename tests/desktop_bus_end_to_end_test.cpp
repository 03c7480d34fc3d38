// duskwelld against the desktop's D-Bus services: two private dbus-daemons stand for the
// system and the session bus, and tests/dbus/fake_desktop.py plays logind,
// power-profiles-daemon, UPower, the notification service and the screen saver on them,
// recording every call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "daemon_fixture.h"
#include "private_bus.h"

namespace duskwell::itest {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using json = nlohmann::json;

// A temporary HOME, both buses and the stand-in services, in that order of birth.
class BusDesktop {
public:
    explicit BusDesktop(const std::vector<std::string>& fakeOptions, bool startFake = true)
        : system_(home.home(), "system-bus"), session_(home.home(), "session-bus") {
        env_.set("DBUS_SYSTEM_BUS_ADDRESS", system_.address());
        env_.set("DBUS_SESSION_BUS_ADDRESS", session_.address());
        env_.unset("XDG_SESSION_ID");
        if (!startFake) return;
        std::vector<std::string> argv{kSystemPython, std::string(DUSKWELL_SOURCE_DIR) + "/tests/dbus/fake_desktop.py",
                                      "--log", log()};
        argv.insert(argv.end(), fakeOptions.begin(), fakeOptions.end());
        fake_ = std::make_unique<Process>(argv, Launch{home.home() + "/fake.out"});
        waitFor([&] { return count("event", "ready") > 0 || !fake_->running(); }, 15);
    }

    std::string log() const { return home.home() + "/bus-calls.jsonl"; }
    std::vector<json> entries() const {
        std::vector<json> out;
        std::string text = testing::readFile(log()).value_or("");
        for (std::size_t at; (at = text.find('\n')) != std::string::npos; text.erase(0, at + 1)) {
            auto j = json::parse(text.substr(0, at), nullptr, false);
            if (!j.is_discarded()) out.push_back(std::move(j));
        }
        return out;
    }
    // How many entries have `key` (call or event) equal to `value`.
    int count(const std::string& key, const std::string& value) const {
        int n = 0;
        for (const auto& e : entries()) n += e.value(key, "") == value;
        return n;
    }
    std::optional<json> first(const std::string& key, const std::string& value) const {
        for (const auto& e : entries())
            if (e.value(key, "") == value) return e;
        return std::nullopt;
    }
    void signalFake(int sig) { fake_->signal(sig); }
    bool fakeRunning() { return fake_ && fake_->running(); }
    std::string why() const {
        return "calls:\n" + testing::readFile(log()).value_or("") + "fake:\n" +
               testing::readFile(home.home() + "/fake.out").value_or("") + "daemon:\n" +
               testing::readFile(home.daemonLog()).value_or("");
    }

    DaemonHome home;

private:
    PrivateBus system_;
    PrivateBus session_;
    EnvScope env_;
    std::unique_ptr<Process> fake_;
};

bool active(const DaemonHome& home) {
    const auto s = home.status();
    return s && s->value("active", false);
}

std::string endsAt(const DaemonHome& home) {
    const auto s = home.status();
    return s ? s->value("endsAt", std::string()) : std::string();
}

#define SKIP_WITHOUT_TOOLS()                                                                  \
    do {                                                                                      \
        if (!busToolsPresent()) {                                                                \
            GTEST_SKIP() << "needs dbus-daemon and python3-dbus (scripts/deps-debian.txt)"; \
        }                                                                                     \
    } while (false)

// The inhibitor lives exactly as long as the period, and dies with the daemon; the power
// profile it read over the bus is raised and given back through the helper.
TEST(DesktopBus, InhibitorFollowsThePeriodAndTheDaemonsLifeAndTheProfileIsRestored) {
    SKIP_WITHOUT_TOOLS();
    BusDesktop desk({"--profile", "power-saver"});
    ASSERT_TRUE(desk.fakeRunning()) << desk.why();
    auto daemon = desk.home.startDaemon();
    ASSERT_TRUE(daemon->running()) << desk.why();

    ASSERT_EQ(desk.home.cli({"start", "--mode", "timer", "--minutes", "45"}).status, 0);
    ASSERT_TRUE(waitFor([&] { return desk.count("call", "Inhibit") == 1; }, 10)) << desk.why();
    const auto inhibit = desk.first("call", "Inhibit");
    EXPECT_EQ((*inhibit)["args"][0], "idle:sleep");
    EXPECT_EQ((*inhibit)["args"][1], "Duskwell");
    EXPECT_EQ((*inhibit)["args"][3], "block");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(desk.count("event", "released"), 0) << "held while the period runs";
    // power-saver read from power-profiles-daemon: low power off, performance on.
    EXPECT_THAT(desk.home.helperVerbs(), Contains("lowpower 0"));
    EXPECT_THAT(desk.home.helperVerbs(), Contains("powermode 2"));

    ASSERT_EQ(desk.home.cli({"stop"}).status, 0);
    EXPECT_TRUE(waitFor([&] { return desk.count("event", "released") == 1; }, 10)) << desk.why();
    EXPECT_THAT(desk.home.helperVerbs(), Contains("lowpower 1"));
    EXPECT_THAT(desk.home.helperVerbs(), Contains("powermode 1"));

    // A crash releases it too: logind sees our end of the descriptor close.
    ASSERT_EQ(desk.home.cli({"start", "--mode", "timer", "--minutes", "45"}).status, 0);
    ASSERT_TRUE(waitFor([&] { return desk.count("call", "Inhibit") == 2; }, 10)) << desk.why();
    daemon->kill(SIGKILL);
    EXPECT_TRUE(waitFor([&] { return desk.count("event", "released") == 2; }, 10)) << desk.why();
}

TEST(DesktopBus, PowerOffNoticeStopsThePeriod) {
    SKIP_WITHOUT_TOOLS();
    BusDesktop desk({});
    auto daemon = desk.home.startDaemon();
    ASSERT_EQ(desk.home.cli({"start", "--mode", "timer", "--minutes", "45"}).status, 0);
    ASSERT_TRUE(waitFor([&] { return active(desk.home) && desk.count("call", "Inhibit") == 1; }, 10)) << desk.why();

    desk.signalFake(SIGUSR1);  // logind: PrepareForShutdown(true)
    EXPECT_TRUE(waitFor([&] { return !active(desk.home); }, 10)) << desk.why();
    EXPECT_TRUE(waitFor([&] { return desk.count("event", "released") == 1; }, 10)) << desk.why();
    EXPECT_THAT(testing::readFile(desk.home.daemonLog()).value_or(""), HasSubstr("power-off notice"));
    EXPECT_TRUE(daemon->running()) << "the SIGTERM that follows ends it, not the notice";
}

// On battery at 12 % with the default floor of 10 %: UPower's reading reaches the status
// line, the low-battery notification carries buttons, and the picked one is obeyed. A lid
// closing (UPower) then locks the session through logind.
TEST(DesktopBus, UPowerReadingsNotificationButtonsAndTheLidLock) {
    SKIP_WITHOUT_TOOLS();
    struct Row {
        int pick;
        bool extended;  // else stopped
    };
    for (const Row row : {Row{0, true}, Row{1, false}}) {
        SCOPED_TRACE("button " + std::to_string(row.pick));
        BusDesktop desk({"--on-battery", "--percent", "12", "--time-to-empty", "5400", "--lid", "open", "--pick",
                         std::to_string(row.pick)});
        auto daemon = desk.home.startDaemon();
        ASSERT_EQ(desk.home.cli({"start", "--mode", "timer", "--minutes", "45"}).status, 0);
        ASSERT_TRUE(waitFor([&] { return !endsAt(desk.home).empty(); }, 10)) << desk.why();
        const std::string firstEnd = endsAt(desk.home);

        ASSERT_TRUE(waitFor([&] { return desk.count("event", "ActionInvoked") == 1; }, 20)) << desk.why();
        const auto notify = desk.first("call", "Notify");
        EXPECT_EQ((*notify)["summary"], "Battery getting low");
        EXPECT_EQ((*notify)["actions"], json({"duskwell://extend?minutes=30", "Extend 30 min", "duskwell://stop", "Stop"}));
        if (row.extended) {
            EXPECT_TRUE(waitFor([&] { return endsAt(desk.home) > firstEnd; }, 10)) << desk.why();
            const auto s = desk.home.status();
            EXPECT_THAT(s->value("status", ""), HasSubstr("Battery 12% (~1:30)"));

            desk.signalFake(SIGUSR2);  // the lid closes
            EXPECT_TRUE(waitFor([&] { return desk.count("call", "Lock") == 1; }, 10)) << desk.why();
            EXPECT_TRUE(waitFor([&] { return desk.home.status()->value("status", "").find("Lid closed") != std::string::npos; }, 10));
        } else {
            EXPECT_TRUE(waitFor([&] { return !active(desk.home); }, 10)) << desk.why();
        }
    }
}

// Nothing on the bus, or no bus at all, or a logind that refuses: a period still starts and
// stops at once, and nothing waits for an answer that never comes.
TEST(DesktopBus, MissingBusOrServicesAreNeutralAndNeverHang) {
    SKIP_WITHOUT_TOOLS();
    enum class Setup { noBus, emptyBuses, refusingLogind };
    for (const Setup setup : {Setup::noBus, Setup::emptyBuses, Setup::refusingLogind}) {
        SCOPED_TRACE(static_cast<int>(setup));
        BusDesktop desk({"--refuse-inhibit", "--services", "logind"}, setup == Setup::refusingLogind);
        EnvScope env;
        if (setup == Setup::noBus) {
            env.set("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + desk.home.home() + "/no-system-bus");
            env.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + desk.home.home() + "/no-session-bus");
        }
        auto daemon = desk.home.startDaemon();
        ASSERT_TRUE(daemon->running()) << desk.why();
        const auto began = std::chrono::steady_clock::now();
        ASSERT_EQ(desk.home.cli({"start", "--mode", "timer", "--minutes", "45"}).status, 0);
        EXPECT_TRUE(waitFor([&] { return active(desk.home); }, 5)) << desk.why();
        ASSERT_EQ(desk.home.cli({"stop"}).status, 0);
        EXPECT_TRUE(waitFor([&] { return !active(desk.home); }, 5)) << desk.why();
        EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));
        if (setup == Setup::refusingLogind) {
            EXPECT_EQ(desk.count("call", "Inhibit"), 1);
        }
        EXPECT_EQ(daemon->terminate(), 0) << desk.why();
    }
}

}  // namespace
}  // namespace duskwell::itest

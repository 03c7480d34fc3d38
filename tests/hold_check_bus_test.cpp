// The keep-awake self-check against a private system bus: a real dbus-daemon with the
// stand-in logind and power-profiles-daemon of tests/dbus/held_fake_logind.py on it, reached
// through DBUS_SYSTEM_BUS_ADDRESS. First the Linux probe alone, then duskwelld reporting
// in status.json what it found (its systemd-inhibit talks to the stand-in too).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdio>

#include "daemon_fixture.h"
#include "power/hold_probe_linux.h"
#include "private_bus.h"

namespace duskwell::itest {
namespace {

using nlohmann::json;

class PrivateSystemBus {
public:
    PrivateSystemBus() {
        if (!fs::exists(kDbusDaemon)) {
            why_ = "dbus-daemon is not installed";
            return;
        }
        setState(json::object());
        bus_.emplace(dir_.path(), "bus");
        if (bus_->address().empty()) {
            why_ = "dbus-daemon did not start";
            return;
        }
        const std::string ready = dir_.path() + "/ready";
        logind_ = std::make_unique<Process>(
            std::vector<std::string>{kSystemPython, std::string(DUSKWELL_SOURCE_DIR) + "/tests/dbus/held_fake_logind.py",
                                     bus_->address(), state(), ready},
            Launch{log()});
        if (!waitFor([&] { return fs::exists(ready) || !logind_->running(); }, 20) || !fs::exists(ready)) {
            why_ = "the stand-in logind did not start (python3-dbus, python3-gi?): " +
                   testing::readFile(log()).value_or("");
            return;
        }
        env_.set("DBUS_SYSTEM_BUS_ADDRESS", bus_->address());
    }
    const std::string& why() const { return why_; }
    bool ready() const { return why_.empty(); }
    // The stand-ins' answers from now on (written whole, then renamed into place).
    void setState(const json& s) const {
        testing::writeFile(state() + ".new", s.dump());
        std::rename((state() + ".new").c_str(), state().c_str());
    }
    std::string log() const { return dir_.path() + "/logind.log"; }
    // The Inhibit calls the stand-in answered ("idle:sleep Duskwell block").
    std::string inhibitCalls() const { return testing::readFile(state() + ".calls").value_or(""); }

private:
    std::string state() const { return dir_.path() + "/state.json"; }
    testing::TempDir dir_;
    std::string why_;
    std::optional<PrivateBus> bus_;
    std::unique_ptr<Process> logind_;
    EnvScope env_;
};

// `a` with the members of `b` added.
json with(json a, const json& b) {
    a.update(b);
    return a;
}

json lock(const std::string& what, const std::string& who, std::uint32_t uid, int pid) {
    return json::array({what, who, "keep running", "block", uid, pid});
}

TEST(HoldCheckBus, TheLinuxProbeAsksLogindAndPowerProfilesOnTheBus) {
    PrivateSystemBus bus;
    if (!bus.ready()) GTEST_SKIP() << bus.why();
    testing::TempDir root;
    Process child({"/bin/sleep", "60"});
    const std::uint32_t uid = ::getuid();
    const int self = ::getpid();
    const json lidIgnored = {{"lid", "ignore"}, {"lidExternalPower", "ignore"}, {"lidDocked", "ignore"}};
    struct Case {
        const char* what;
        json state;
        bool dropIn;
        HoldObservation seen;
    };
    const Case cases[] = {
        {"ours by pid, lid ignored, performance",
         with(lidIgnored, {{"extra", json::array({lock("idle:sleep", "Duskwell", uid, self)})}, {"profile", "performance"}}),
         false, {true, true, 2, 0}},
        {"ours through the systemd-inhibit child",
         {{"extra", json::array({lock("idle:sleep", "systemd-inhibit", uid, child.pid())})}, {"lid", "suspend"}, {"profile", "balanced"}},
         false, {true, false, 0, 0}},
        {"someone else's lock only; lid ignored but not on external power",
         {{"extra", json::array({lock("idle", "GNOME Shell", uid + 1, 1)})}, {"lid", "ignore"}, {"lidExternalPower", "suspend"},
          {"profile", "power-saver"}},
         false, {false, false, 1, 1}},
        {"no lid property: the drop-in decides; no profiles service", json::object(), true,
         {false, true, std::nullopt, std::nullopt}},
        {"no lid property and no drop-in", json::object(), false, {false, std::nullopt, std::nullopt, std::nullopt}},
    };
    const auto probe = makeLinuxHoldProbe(root.path(), 2.0);
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        bus.setState(k.state);
        const std::string dropIn = root.path() + "/run/systemd/logind.conf.d/duskwell.conf";
        fs::remove(dropIn);
        if (k.dropIn) {
            fs::create_directories(fs::path(dropIn).parent_path());
            testing::writeFile(dropIn, "[Login]\nHandleLidSwitch=ignore\n");
        }
        EXPECT_EQ(probe->observe({self, true, true, true}), k.seen) << testing::readFile(bus.log()).value_or("");
    }
    // Only what is asked is looked at.
    bus.setState(with(lidIgnored, {{"profile", "performance"}}));
    EXPECT_EQ(probe->observe({self, false, false, true}), (HoldObservation{std::nullopt, std::nullopt, 2, 0}));

    // No bus at all: nothing known, and quickly.
    EnvScope gone;
    gone.set("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + root.path() + "/no-bus");
    const auto before = Clock::now();
    EXPECT_EQ(probe->observe({self, true, true, true}), HoldObservation{});
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(1));

    // A bus that takes the connection and never answers: given up after the call timeout.
    const std::string stalled = root.path() + "/stalled-bus";
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un at{};
    at.sun_family = AF_UNIX;
    std::snprintf(at.sun_path, sizeof at.sun_path, "%s", stalled.c_str());
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    gone.set("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + stalled);
    const auto quick = makeLinuxHoldProbe(root.path(), 0.3);
    const auto start = Clock::now();
    EXPECT_EQ(quick->observe({self, true, true, true}), HoldObservation{});
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
    ::close(listener);
}

// duskwelld a few seconds into a period: held while logind lists its lock and ignores the
// lid; not held, with the reasons, when it lists no lock of ours and handles the lid again.
TEST(HoldCheckBus, DuskwelldWritesWhatHoldsIntoTheStatusFile) {
    PrivateSystemBus bus;
    if (!bus.ready()) GTEST_SKIP() << bus.why();
    DaemonHome home;
    auto daemon = home.startDaemon();
    const auto statusWith = [&](const std::string& key) {
        std::optional<json> doc;
        waitFor([&] { return (doc = home.status()) && doc->contains(key); }, 15);
        return doc.value_or(json::object());
    };

    bus.setState({{"lid", "ignore"}});
    ASSERT_EQ(home.cli({"start", "--mode", "timer", "--minutes", "30"}).status, 0);
    json doc = statusWith("held");
    // Without a systemd-inhibit that reaches the bus the lock is missing either way.
    if (bus.inhibitCalls().find("Duskwell block") != std::string::npos) {
        EXPECT_EQ(doc["held"], true) << doc.dump();
        EXPECT_FALSE(doc.contains("heldReasons"));
    }
    ASSERT_EQ(home.cli({"stop"}).status, 0);
    EXPECT_TRUE(waitFor([&] { auto d = home.status(); return d && !d->contains("held"); }, 10));

    bus.setState({{"list", false}, {"lid", "suspend"}});
    ASSERT_EQ(home.cli({"start", "--mode", "timer", "--minutes", "30"}).status, 0);
    doc = statusWith("heldReasons");
    EXPECT_EQ(doc["held"], false) << doc.dump();
    EXPECT_EQ(doc["heldReasons"], json::array({"inhibitor", "lid"}));
    EXPECT_THAT(doc.value("status", ""), ::testing::StartsWith("Not holding: sleep block gone, lid sleep is on · "));
    ASSERT_EQ(home.cli({"stop"}).status, 0);
    EXPECT_EQ(daemon->terminate(), 0);
}

}  // namespace
}  // namespace duskwell::itest

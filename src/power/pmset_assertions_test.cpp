#include "power/pmset_assertions.h"

#include <gtest/gtest.h>

#include "power/hold_probe.h"

namespace duskwell {
namespace {

// `pmset -g assertions` as macOS prints it: the system-wide flags, the rows by owning
// process with their tab-indented details, then the kernel's own assertions. Our row's
// Korean name comes out mangled, as pmset prints non-ASCII names.
constexpr const char* kListing =
    "2026-11-23 09:14:02 +0900\n"
    "Assertion status system-wide:\n"
    "   BackgroundTask                 0\n"
    "   ApplePushServiceTask           0\n"
    "   UserIsActive                   1\n"
    "   PreventUserIdleDisplaySleep    0\n"
    "   PreventSystemSleep             0\n"
    "   ExternalMedia                  0\n"
    "   PreventUserIdleSystemSleep     1\n"
    "   NetworkClientActive            0\n"
    "Listed by owning process:\n"
    "   pid 351(powerd): [0x0002a1b300019c01] 03:12:09 PreventUserIdleSystemSleep named: \"Powerd - Prevent sleep while display is on\"\n"
    "   pid 5120(Duskwell): [0x0002b7c00001a2f4] 00:41:17 PreventUserIdleSystemSleep named: \"Owlguard: ??? ?? ?? ??\"\n"
    "   pid 418(coreaudiod): [0x0002b80a0001a311] 00:02:40 PreventUserIdleSystemSleep named: \"com.apple.audio.BuiltInSpeakerDevice.context.preventuseridlesleep\"\n"
    "\tCreated for PID: 7781.\n"
    "\tResources: audio-out BuiltInSpeakerDevice\n"
    "   pid 7781(Google Chrome Helper (Renderer)): [0x0002b80b00008a12] 00:02:41 PreventUserIdleDisplaySleep named: \"Video Wake Lock\"\n"
    "   pid 402(WindowServer): [0x0002b8110009a318] 00:00:00 UserIsActive named: \"com.apple.iohideventsystem.queue.tickle serviceID:100000a2c\"\n"
    "\tTimeout will fire in 599 secs Action=TimeoutActionRelease\n"
    "Kernel Assertions: 0x4=USB\n"
    "   id=500  level=255 0x4=USB mod=23/11/2026, 08:31 description=com.apple.usb.externaldevice.01100000 owner=USB3.0 Hub\n"
    "Idle sleep preventers: IODisplayWrangler\n";

TEST(PmsetAssertions, ReadsTheRowsByOwningProcessOnly) {
    std::vector<std::string> rows;
    for (const auto& a : PmsetAssertions::parse(kListing))
        rows.push_back(std::to_string(a.pid) + "|" + a.process + "|" + a.type + "|" + a.name);
    EXPECT_EQ(rows, (std::vector<std::string>{
                        "351|powerd|PreventUserIdleSystemSleep|Powerd - Prevent sleep while display is on",
                        "5120|Duskwell|PreventUserIdleSystemSleep|Owlguard: ??? ?? ?? ??",
                        "418|coreaudiod|PreventUserIdleSystemSleep|com.apple.audio.BuiltInSpeakerDevice.context.preventuseridlesleep",
                        "7781|Google Chrome Helper (Renderer)|PreventUserIdleDisplaySleep|Video Wake Lock",
                        "402|WindowServer|UserIsActive|com.apple.iohideventsystem.queue.tickle serviceID:100000a2c"}));
}

TEST(PmsetAssertions, OurIdleSleepAssertionIsFoundByPidAndType) {
    struct Case {
        const char* what;
        std::string text;
        int pid;
        bool held;
    };
    const std::string ours = "   pid 5120(Duskwell): [0x1] 00:00:01 PreventUserIdleSystemSleep named: \"x\"\n";
    const Case cases[] = {
        {"listed", kListing, 5120, true},
        {"another process's only", kListing, 5121, false},
        {"display sleep only", kListing, 7781, false},
        {"the system-wide flag alone counts for nothing", "Assertion status system-wide:\n   PreventUserIdleSystemSleep     1\nListed by owning process:\n", 5120, false},
        {"the former type name", "Listed by owning process:\n   pid 5120(Duskwell): [0x0000000100001192] 00:18:23 NoIdleSleepAssertion named: \"n\"\n", 5120, true},
        {"a row outside the listing", "Kernel Assertions: 0x4=USB\n" + ours, 5120, false},
        {"without the age column", "Listed by owning process:\n  pid 5120(Duskwell): [0x1] PreventUserIdleSystemSleep named: \"n\"\n", 5120, true},
        {"CRLF line ends", "Listed by owning process:\r\n" + ours.substr(0, ours.size() - 1) + "\r\n", 5120, true},
        {"cut short", "Listed by owning process:\n   pid 5120(Duskwell): [0x1", 5120, false},
        {"empty", "", 5120, false},
    };
    for (const Case& k : cases)
        EXPECT_EQ(PmsetAssertions::holdsIdleSleepAssertion(k.text, k.pid), k.held) << k.what;
}

// Which of logind's inhibitors are ours: a blocking idle or sleep lock of this process, of
// its systemd-inhibit child, or under our name for our user.
TEST(HoldFacts, OurInhibitorByPidChildOrName) {
    const auto parent = [](int pid) -> std::optional<int> {
        if (pid == 700) return 600;  // the systemd-inhibit child of duskwelld (600)
        return std::nullopt;
    };
    struct Case {
        InhibitorEntry entry;
        bool ours;
    };
    const Case cases[] = {
        {{"idle:sleep", "Duskwell", "Owlguard", "block", 1000, 600}, true},        // fd held in-process
        {{"idle:sleep", "systemd-inhibit", "cat", "block", 1000, 700}, true},      // the child
        {{"sleep", "Duskwell", "", "block", 1000, 4}, true},                       // our name, our user
        {{"sleep", "Duskwell", "", "block", 1001, 4}, false},                      // someone else's
        {{"idle:sleep", "Duskwell", "Owlguard", "delay", 1000, 600}, false},       // delays nothing
        {{"handle-lid-switch", "Duskwell", "", "block", 1000, 600}, false},         // not idle or sleep
        {{"shutdown:sleeping", "Duskwell", "", "block", 1000, 600}, false},         // "sleep" only as a token
        {{"idle", "GNOME Shell", "screen", "block", 1000, 800}, false},
    };
    for (const Case& k : cases)
        EXPECT_EQ(HoldFacts::isOurInhibitor(k.entry, 600, 1000, parent), k.ours) << k.entry.what << " " << k.entry.who;

    EXPECT_TRUE(HoldFacts::lidSwitchIgnored("ignore", "ignore", std::nullopt));
    EXPECT_FALSE(HoldFacts::lidSwitchIgnored("suspend", "ignore", "ignore"));
    EXPECT_FALSE(HoldFacts::lidSwitchIgnored("ignore", "suspend", "ignore"));
}

}  // namespace
}  // namespace duskwell

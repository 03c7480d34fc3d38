// The root-run helper script, run for real as root inside a private mount namespace: /run
// is a temporary folder, and /usr/bin (plus /etc/sudoers.d and /usr/local for the install
// script) are overlays whose writes land in temporary folders. Recording stand-ins for
// systemctl, powerprofilesctl, pmset and uname sit in the /usr/bin overlay. Nothing reaches
// this machine's real settings.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "power/command_runner_posix.h"
#include "power/power_helper.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

const std::string helperSource = std::string(DUSKWELL_SOURCE_DIR) + "/resources/duskwell-power";
const std::string dropin = "systemd/logind.conf.d/duskwell.conf";  // under the sandbox's /run
const std::string reload = "systemctl kill --kill-whom=main --signal=HUP systemd-logind.service";

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class Sandbox {
public:
    Sandbox() {
        fs::create_directories(root() + "/run");
        writeFile(root() + "/run/.duskwell-sandbox", "");
        overlay("/usr/bin");
        writeFile(upper("/usr/bin") + "/.duskwell-sandbox", "");
        writeFile(root() + "/calls.log", "");
    }

    const std::string& root() const { return dir_.path(); }
    std::string runDir() const { return root() + "/run"; }

    // Writes land in a temporary folder instead of `target`.
    void overlay(const std::string& target) {
        overlays_.push_back(target);
        fs::create_directories(upper(target));
        fs::create_directories(work(target));
    }
    std::string upper(const std::string& target) const { return root() + "/upper" + slug(target); }

    // A program in /usr/bin that records its name and arguments, then exits with `status`.
    void standIn(const std::string& name, int status = 0, const std::string& output = "") {
        const std::string path = upper("/usr/bin") + "/" + name;
        writeFile(path, "#!/bin/sh\n{ printf '%s' " + name + "; for a in \"$@\"; do printf ' %s' \"$a\"; done; "
                        "printf '\\n'; } >> " + root() + "/calls.log\n" +
                        (output.empty() ? "" : "echo " + output + "\n") + "exit " + std::to_string(status) + "\n");
        fs::permissions(path, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                  fs::perms::others_read | fs::perms::others_exec);
    }
    // Makes /usr/bin/`name` absent inside the sandbox even when this machine has it.
    void hide(const std::string& name) {
        const std::string path = upper("/usr/bin") + "/" + name;
        fs::remove(path);
        ASSERT_EQ(::mknod(path.c_str(), S_IFCHR | 0000, makedev(0, 0)), 0);  // an overlay whiteout
    }
    void bootedWithSystemd() { fs::create_directories(runDir() + "/systemd/system"); }

    // Runs `command` as root inside the sandbox with an environment holding only `env`.
    Outcome run(const std::vector<std::string>& command, const std::vector<std::string>& env = {"PATH=/usr/bin:/bin"}) {
        std::string setup = "mount --bind " + runDir() + " /run || exit 99\n";
        for (const auto& t : overlays_)
            setup += "mount -t overlay overlay -o lowerdir=" + t + ",upperdir=" + upper(t) + ",workdir=" + work(t) +
                     " " + t + " || exit 99\n";
        // Refuse to run anything unless both stand-ins are really in place.
        setup += "[ -e /run/.duskwell-sandbox ] && [ -e /usr/bin/.duskwell-sandbox ] || exit 99\n";
        setup += "exec /usr/bin/env -i \"$@\" >" + root() + "/out 2>" + root() + "/err\n";
        std::vector<std::string> args{"--mount", "--propagation", "private", "/bin/sh", "-c", setup, "sandbox"};
        args.insert(args.end(), env.begin(), env.end());
        args.insert(args.end(), command.begin(), command.end());
        fs::remove(root() + "/out");
        fs::remove(root() + "/err");
        const CommandResult r = PosixCommandRunner().run("/usr/bin/unshare", args);
        return {r.status, readFile(root() + "/out").value_or(""), readFile(root() + "/err").value_or(r.output)};
    }
    Outcome helper(const std::vector<std::string>& args) {
        std::vector<std::string> command{helperSource};
        command.insert(command.end(), args.begin(), args.end());
        return run(command);
    }

    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        std::string text = readFile(root() + "/calls.log").value_or("");
        for (size_t at; (at = text.find('\n')) != std::string::npos; text.erase(0, at + 1))
            lines.push_back(text.substr(0, at));
        return lines;
    }
    // Every path under the sandbox's /run with its contents.
    std::map<std::string, std::string> runTree() const {
        std::map<std::string, std::string> tree;
        for (const auto& e : fs::recursive_directory_iterator(runDir())) {
            const std::string rel = fs::relative(e.path(), runDir()).string();
            if (rel.rfind("mount", 0) == 0) continue;  // mount(8)'s own bookkeeping
            tree[rel] = e.is_regular_file() ? readFile(e.path().string()).value_or("?") : "<dir>";
        }
        return tree;
    }

private:
    static std::string slug(const std::string& target) {
        std::string s = target;
        for (auto& c : s)
            if (c == '/') c = '_';
        return s;
    }
    std::string work(const std::string& target) const { return root() + "/work" + slug(target); }

    TempDir dir_;
    std::vector<std::string> overlays_;
};

// Skips unless this machine lets us build the sandbox: root, unshare and overlayfs.
#define REQUIRE_SANDBOX(box)                                                                     \
    do {                                                                                         \
        if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the helper as sudo would";     \
        const Outcome probe = (box).run({"/bin/true"});                                          \
        if (probe.status != 0)                                                                   \
            GTEST_SKIP() << "no private mount namespace with overlayfs here (status "            \
                         << probe.status << "): " << probe.err;                                  \
    } while (0)

class HelperScriptLinux : public ::testing::Test {
protected:
    void SetUp() override {
        REQUIRE_SANDBOX(box);
        box.standIn("systemctl");
        box.standIn("powerprofilesctl");
        box.bootedWithSystemd();
    }
    Sandbox box;
};

TEST_F(HelperScriptLinux, VersionAnswersZeroAndChangesNothing) {
    const auto before = box.runTree();
    const Outcome o = box.helper({"version"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "duskwell-power 1\n");
    EXPECT_THAT(box.calls(), IsEmpty());
    EXPECT_EQ(box.runTree(), before);
}

TEST_F(HelperScriptLinux, LidOnWritesTheLogindDropInAndReloadsLogind) {
    // A name planted where a fixed temporary name used to be is never written through.
    const std::string dropDir = fs::path(box.runDir() + "/" + dropin).parent_path().string();
    fs::create_directories(dropDir);
    writeFile(box.runDir() + "/victim", "untouched\n");
    fs::create_symlink(box.runDir() + "/victim", box.runDir() + "/" + dropin + ".tmp");
    const Outcome o = box.helper({"lid-on"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(readFile(box.runDir() + "/victim"), "untouched\n");
    fs::remove(box.runDir() + "/" + dropin + ".tmp");
    for (const auto& e : fs::directory_iterator(dropDir))
        EXPECT_EQ(e.path().filename(), "duskwell.conf") << "no temporary file is left behind";
    EXPECT_EQ(readFile(box.runDir() + "/" + dropin),
              "[Login]\nHandleLidSwitch=ignore\nHandleLidSwitchExternalPower=ignore\nHandleLidSwitchDocked=ignore\n");
    EXPECT_THAT(box.calls(), ElementsAre(reload));
    EXPECT_FALSE(fs::exists(box.runDir() + "/" + dropin + ".tmp"));
    EXPECT_EQ(fs::status(box.runDir() + "/" + dropin).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read);
}

TEST_F(HelperScriptLinux, LidOffRemovesTheDropInAndReloadsOnlyWhenThereWasOne) {
    ASSERT_EQ(box.helper({"lid-on"}).status, 0);
    Outcome o = box.helper({"lid-off"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_FALSE(fs::exists(box.runDir() + "/" + dropin));
    EXPECT_THAT(box.calls(), ElementsAre(reload, reload));

    o = box.helper({"lid-off"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(box.calls(), ElementsAre(reload, reload)) << "nothing to give back, no reload";
}

TEST_F(HelperScriptLinux, LidOnThatLogindDoesNotTakeIsUndoneAndFails) {
    box.standIn("systemctl", 1);
    const Outcome o = box.helper({"lid-on"});
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err, "duskwell-power: systemd-logind did not reload\n");
    EXPECT_FALSE(fs::exists(box.runDir() + "/" + dropin));
}

TEST_F(HelperScriptLinux, WithoutSystemdTheLidVerbsSucceedWithoutWriting) {
    fs::remove_all(box.runDir() + "/systemd");
    EXPECT_EQ(box.helper({"lid-on"}).status, 0);
    EXPECT_EQ(box.helper({"lid-off"}).status, 0);
    EXPECT_FALSE(fs::exists(box.runDir() + "/systemd"));
    EXPECT_THAT(box.calls(), IsEmpty());
}

TEST_F(HelperScriptLinux, PowerVerbsMapOntoPowerProfiles) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"lowpower", "1"}, {"lowpower", "0"}, {"powermode", "0"}, {"powermode", "1"}, {"powermode", "2"}}) {
        const Outcome o = box.helper(args);
        EXPECT_EQ(o.status, 0) << args[0] << " " << args[1] << ": " << o.err;
    }
    EXPECT_THAT(box.calls(), ElementsAre("powerprofilesctl set power-saver", "powerprofilesctl set balanced",
                                         "powerprofilesctl set balanced", "powerprofilesctl set power-saver",
                                         "powerprofilesctl set performance"));
}

TEST_F(HelperScriptLinux, APowerProfileFailureIsReported) {
    box.standIn("powerprofilesctl", 1);
    const Outcome o = box.helper({"powermode", "2"});
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err, "duskwell-power: powerprofilesctl set performance failed\n");
}

TEST_F(HelperScriptLinux, WithoutPowerProfilesDaemonThePowerVerbsAreNoOps) {
    box.hide("powerprofilesctl");
    EXPECT_EQ(box.helper({"lowpower", "1"}).status, 0);
    EXPECT_EQ(box.helper({"powermode", "2"}).status, 0);
    EXPECT_THAT(box.calls(), IsEmpty());
}

TEST_F(HelperScriptLinux, TheCallersEnvironmentIsNotTrusted) {
    // A PATH full of look-alikes, a hostile IFS and shell start-up file change nothing.
    Sandbox& b = box;
    const std::string evil = b.root() + "/evil";
    fs::create_directories(evil);
    for (const char* name : {"mkdir", "mv", "rm", "printf", "uname", "systemctl", "powerprofilesctl"}) {
        writeFile(evil + "/" + name, "#!/bin/sh\necho EVIL >> " + b.root() + "/calls.log\n");
        fs::permissions(evil + "/" + name, fs::perms::owner_all);
    }
    writeFile(evil + "/env.sh", "echo EVIL >> " + b.root() + "/calls.log\n");
    const Outcome o = b.run({helperSource, "lid-on"},
                            {"PATH=" + evil, "IFS=/-", "ENV=" + evil + "/env.sh", "LD_PRELOAD=/nonexistent.so"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(b.calls(), ElementsAre(reload));
    EXPECT_TRUE(fs::exists(b.runDir() + "/" + dropin));
}

// Everything that is not one of the five verbs: refused with status 64 and one line on
// stderr, and neither /run nor any program is touched.
TEST_F(HelperScriptLinux, HostileInputsAreRefusedAndChangeNothing) {
    ASSERT_EQ(box.helper({"lid-on"}).status, 0);  // a drop-in that must survive
    const auto before = box.runTree();
    const auto callsBefore = box.calls();
    const std::vector<std::vector<std::string>> hostile{
        {}, {""}, {"versio"}, {"VERSION"}, {" version"}, {"version\n"}, {"version", "1"}, {"version", ""},
        {"lid-on", "now"}, {"lid-off", ""}, {"lid-on;reboot"}, {"lid-on", "lid-off"}, {"../lid-on"}, {"/usr/bin/id"},
        {"-h"}, {"--", "version"}, {"sh", "-c", "id"}, {"pmset", "-a", "disablesleep", "1"},
        {"lowpower"}, {"lowpower", ""}, {"lowpower", "2"}, {"lowpower", "1;reboot"}, {"lowpower", "1 ; /sbin/reboot"},
        {"lowpower", "$(id)"}, {"lowpower", "`id`"}, {"lowpower", "../1"}, {"lowpower", "-1"}, {"lowpower", "+1"},
        {"lowpower", "01"}, {"lowpower", " 1"}, {"lowpower", "1 "}, {"lowpower", "1\n"}, {"lowpower", "1\nreboot"},
        {"lowpower", "\xd9\xa1"}, {"lowpower", "\xef\xbc\x91"},  // ARABIC-INDIC and FULLWIDTH DIGIT ONE
        {"lowpower", "1", "1"}, {"powermode"}, {"powermode", "3"}, {"powermode", "10"},
        {"powermode", "99999999999999999999999999999999"}, {"powermode", std::string(5000, '2')},
        {"powermode", "0x2"}, {"powermode", "2.0"}, {"powermode", "*"}, {"powermode", "[0-2]"}, {"powermode", "?"},
        {"powermode", "\xd9\xa2"},  // ARABIC-INDIC DIGIT TWO
        {"powermode", "2", "extra"}, {"lowpower", "1", "powermode", "2"}, {"powermode", "-2"},
    };
    ASSERT_GE(hostile.size(), 30u);
    for (const auto& args : hostile) {
        std::string shown;
        for (const auto& a : args) shown += "[" + a.substr(0, 40) + "]";
        const Outcome o = box.helper(args);
        EXPECT_EQ(o.status, 64) << shown;
        EXPECT_EQ(o.out, "") << shown;
        EXPECT_EQ(o.err.rfind("duskwell-power: ", 0), 0u) << shown << " -> " << o.err;
        EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << shown << " -> " << o.err;
    }
    EXPECT_EQ(box.calls(), callsBefore);
    EXPECT_EQ(box.runTree(), before);
}

class HelperScriptMac : public ::testing::Test {
protected:
    void SetUp() override {
        REQUIRE_SANDBOX(box);
        box.standIn("uname", 0, "Darwin");
        box.standIn("pmset");
        box.standIn("systemctl");
        box.standIn("powerprofilesctl");
        box.bootedWithSystemd();
    }
    Sandbox box;
};

TEST_F(HelperScriptMac, EachVerbIsOnePmsetCall) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"lid-on"}, {"lid-off"}, {"lowpower", "0"}, {"lowpower", "1"}, {"powermode", "2"}, {"powermode", "0"}}) {
        const Outcome o = box.helper(args);
        EXPECT_EQ(o.status, 0) << args[0] << ": " << o.err;
    }
    EXPECT_THAT(box.calls(), ElementsAre("uname -s", "pmset -a disablesleep 1", "uname -s", "pmset -a disablesleep 0",
                                         "uname -s", "pmset -b lowpowermode 0", "uname -s",
                                         "pmset -b lowpowermode 1", "uname -s", "pmset -b powermode 2", "uname -s",
                                         "pmset -b powermode 0"));
    EXPECT_FALSE(fs::exists(box.runDir() + "/systemd/logind.conf.d"));
}

TEST_F(HelperScriptMac, APmsetFailureIsPassedOn) {
    box.standIn("pmset", 3);
    EXPECT_EQ(box.helper({"lid-on"}).status, 3);
}

TEST_F(HelperScriptMac, HostileInputsNeverReachPmset) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"lowpower", "1;reboot"}, {"powermode", "$(id)"}, {"lid-on", "1"}, {"disablesleep", "1"}})
        EXPECT_EQ(box.helper(args).status, 64);
    EXPECT_THAT(box.calls(), IsEmpty());
}

// The Linux install script, run for real: visudo checks the rule, install puts both files
// in place (into the overlays), and the rule then lets exactly that user run the helper
// through sudo -n, and nothing else.
class InstallScriptLinux : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fs::is_directory("/etc/sudoers.d") || !fs::exists("/usr/sbin/visudo") || !fs::exists("/usr/bin/sudo"))
            GTEST_SKIP() << "sudo is not installed";
        box.overlay("/etc/sudoers.d");
        box.overlay("/usr/local");
        REQUIRE_SANDBOX(box);
        box.standIn("systemctl");
        box.bootedWithSystemd();
    }
    Outcome asNobody(const std::vector<std::string>& command) {
        std::vector<std::string> c{"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
        c.insert(c.end(), command.begin(), command.end());
        return box.run(c);
    }
    Sandbox box;
};

TEST_F(InstallScriptLinux, VisudoAcceptsTheRuleForAPlainUserName) {
    const std::string rule = box.root() + "/rule";
    writeFile(rule, "ann.b-c_1 ALL=(root) NOPASSWD: /usr/local/libexec/duskwell-power\n");
    EXPECT_EQ(PosixCommandRunner().run("/usr/sbin/visudo", {"-cf", rule}).status, 0);
    // The check is real: a name the user-name rule would never admit fails it.
    writeFile(rule, "ann smith ALL=(root) NOPASSWD: /usr/local/libexec/duskwell-power\n");
    EXPECT_NE(PosixCommandRunner().run("/usr/sbin/visudo", {"-cf", rule}).status, 0);
}

TEST_F(InstallScriptLinux, InstallsTheHelperAndARuleThatAllowsOnlyIt) {
    const std::string script = PowerHelper::installScript(PowerHelper::linuxLayout(), "nobody", helperSource);
    const Outcome installed = box.run({"/bin/sh", "-c", script});
    ASSERT_EQ(installed.status, 0) << installed.err;

    const std::string rule = box.upper("/etc/sudoers.d") + "/duskwell";
    const std::string helper = box.upper("/usr/local") + "/libexec/duskwell-power";
    EXPECT_EQ(readFile(rule), "nobody ALL=(root) NOPASSWD: /usr/local/libexec/duskwell-power\n");
    EXPECT_EQ(readFile(helper), readFile(helperSource));
    struct stat st {};
    ASSERT_EQ(::stat(rule.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0440u);
    EXPECT_EQ(st.st_uid, 0u);
    ASSERT_EQ(::stat(helper.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    EXPECT_EQ(st.st_uid, 0u);

    Outcome o = asNobody({"/usr/bin/sudo", "-n", "/usr/local/libexec/duskwell-power", "version"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "duskwell-power 1\n");
    o = asNobody({"/usr/bin/sudo", "-n", "/usr/local/libexec/duskwell-power", "lid-on"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_TRUE(fs::exists(box.runDir() + "/" + dropin)) << "the helper really ran as root";
    o = asNobody({"/usr/bin/sudo", "-n", "/usr/local/libexec/duskwell-power", "lowpower", "1;id"});
    EXPECT_EQ(o.status, 64);
    o = asNobody({"/usr/bin/sudo", "-n", "/usr/bin/id"});
    EXPECT_NE(o.status, 0) << "the rule allows the helper and nothing else";
}

// The install script's temporary files in /tmp (a failed check leaves its own behind).
std::set<std::string> installTempFiles() {
    std::set<std::string> out;
    for (const auto& e : fs::directory_iterator("/tmp"))
        if (e.path().filename().string().rfind("duskwell.", 0) == 0) out.insert(e.path().string());
    return out;
}

TEST_F(InstallScriptLinux, ABadRuleOrAChangedHelperInstallsNothing) {
    // A helper beside the user's executable that is not the one this build shipped.
    const std::string tampered = box.root() + "/duskwell-power";
    writeFile(tampered, readFile(helperSource).value() + "/usr/bin/id > /tmp/owned\n");
    for (const auto& [user, source] : {std::pair<std::string, std::string>{"bad user", helperSource},
                                       std::pair<std::string, std::string>{"nobody", tampered}}) {
        const std::string script = PowerHelper::installScript(PowerHelper::linuxLayout(), user, source);
        const auto tempBefore = installTempFiles();
        const Outcome o = box.run({"/bin/sh", "-c", script});
        for (const auto& f : installTempFiles())
            if (!tempBefore.count(f)) fs::remove(f);
        EXPECT_NE(o.status, 0) << source;
        EXPECT_FALSE(fs::exists(box.upper("/etc/sudoers.d") + "/duskwell")) << source;
        EXPECT_FALSE(fs::exists(box.upper("/usr/local") + "/libexec/duskwell-power")) << source;
    }
}

}  // namespace
}  // namespace duskwell

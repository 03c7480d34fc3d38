#ifdef __linux__
#include "core/platform_linux.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "core/localization.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::writeFile;

std::vector<std::string> languages(std::map<std::string, std::string> env) {
    return languagesFromEnvironment([&](const char* name) -> const char* {
        auto it = env.find(name);
        return it == env.end() ? nullptr : it->second.c_str();
    });
}

TEST(LinuxLanguages, LanguageListThenLcAllLcMessagesAndLangWithCAndPosixAsEnglish) {
    using V = std::vector<std::string>;
    EXPECT_EQ(languages({{"LANGUAGE", ":ko_KR:en_US"}, {"LANG", "en_US.UTF-8"}}), (V{"ko_KR", "en_US"}));
    EXPECT_EQ(languages({{"LANGUAGE", ""}, {"LC_ALL", ""}, {"LC_MESSAGES", "ko_KR.UTF-8"}, {"LANG", "en_US"}}),
              V{"ko_KR.UTF-8"});
    EXPECT_EQ(languages({{"LC_ALL", "en_GB.UTF-8"}, {"LANG", "ko_KR.UTF-8"}}), V{"en_GB.UTF-8"});
    EXPECT_EQ(languages({{"LANG", "C"}}), V{"en"});
    EXPECT_EQ(languages({{"LC_ALL", "C.UTF-8"}, {"LANG", "ko_KR"}}), V{"en"});
    EXPECT_EQ(languages({{"LANGUAGE", "POSIX"}}), V{"en"});
    EXPECT_TRUE(languages({}).empty());
    EXPECT_TRUE(Locale::isKoreanFor(languages({{"LANGUAGE", "ko"}, {"LC_ALL", "en_US.UTF-8"}})));
    EXPECT_TRUE(Locale::isKoreanFor(languages({{"LANG", "ko_KR.UTF-8"}})));
}

// A fake install: programs under a temporary root, a scripted command runner, temporary HOME.
class LinuxPlatformTest : public ::testing::Test {
protected:
    testing::TestEnvironment env;
    testing::TempDir root;
    testing::EnvScope home{"HOME", env.home.path()};

    LinuxPlatform platform(std::optional<bool> terminal = false, std::string exe = "/opt/dw/bin/duskwelld") {
        return LinuxPlatform({root.path(), std::move(exe), terminal});
    }
    std::string program(const std::string& name) {
        const std::string path = root.path() + "/usr/bin/" + name;
        writeFile(path, "#!/bin/sh\nexit 0\n");
        return path;
    }
};

TEST_F(LinuxPlatformTest, HomeFollowsTheEnvironment) {
    EXPECT_EQ(platform().homeDirectory(), env.home.path());
}

TEST_F(LinuxPlatformTest, ResourcesAreFoundBesideTheProgramThenInLibexec) {
    const std::string bin = root.path() + "/prefix/bin";
    writeFile(bin + "/duskwelld", "");
    writeFile(root.path() + "/prefix/libexec/duskwell/duskwell-power", "#!/bin/sh\n");
    auto p = platform(false, bin + "/duskwelld");
    EXPECT_EQ(p.resourcePath("duskwell-power"), root.path() + "/prefix/libexec/duskwell/duskwell-power");
    EXPECT_EQ(p.resourcePath("duskwell-hook"), std::nullopt);
    writeFile(bin + "/duskwell-power", "#!/bin/sh\n");  // a build tree: beside the program wins
    EXPECT_EQ(p.resourcePath("duskwell-power"), bin + "/duskwell-power");
}

TEST_F(LinuxPlatformTest, LoginItemWritesTheUserUnitAndEnablesIt) {
    const auto systemctl = program("systemctl");
    auto p = platform();
    EXPECT_FALSE(p.loginItemEnabled());
    env.commands.answer(systemctl + " --user enable", [&](const auto&) {
        // What systemctl does: link the unit into default.target.wants.
        fs::create_directories(fs::path(p.wantsLink()).parent_path());
        fs::create_symlink(p.unitFile(), p.wantsLink());
        return CommandResult{0, "Created symlink ..."};
    });
    EXPECT_EQ(p.setLoginItem(true), std::nullopt);
    EXPECT_TRUE(p.loginItemEnabled());
    const auto unit = readFile(p.unitFile());
    ASSERT_TRUE(unit);
    EXPECT_NE(unit->find("ExecStart=\"/opt/dw/bin/duskwelld\"\n"), std::string::npos);
    EXPECT_NE(unit->find("ExecStopPost=\"/opt/dw/bin/duskwelld\" --restore\n"), std::string::npos)
        << "after a crash systemd gives the power settings back";
    EXPECT_NE(unit->find("WantedBy=default.target"), std::string::npos);
    EXPECT_EQ(p.unitFile(), env.home.path() + "/.config/systemd/user/duskwelld.service");

    env.commands.answer(systemctl + " --user disable", [&](const auto&) {
        fs::remove(p.wantsLink());
        return CommandResult{0, ""};
    });
    EXPECT_EQ(p.setLoginItem(false), std::nullopt);
    EXPECT_FALSE(p.loginItemEnabled());
    EXPECT_FALSE(fs::exists(p.unitFile()));
    EXPECT_EQ(env.commands.lines(), (std::vector<std::string>{systemctl + " --user enable duskwelld.service",
                                                              systemctl + " --user disable duskwelld.service"}));
}

TEST_F(LinuxPlatformTest, LoginItemEnablesAnInstalledUnitForThisProgramInsteadOfHidingIt) {
    const auto systemctl = program("systemctl");
    env.commands.answer(systemctl, CommandResult{0, ""});
    struct Case {
        std::string unitDir, execStart;
        bool usesInstalled;  // no copy of ours in ~/.config afterwards
    };
    const Case cases[] = {
        {"usr/lib/systemd/user", "ExecStart=/opt/dw/bin/duskwelld", true},
        {"usr/local/lib/systemd/user", "ExecStart=\"/opt/dw/bin/duskwelld\"", true},
        {"etc/systemd/user", "ExecStart=/opt/dw/bin/duskwelld", true},
        // Another installation's unit would start another program: ours is written.
        {"usr/lib/systemd/user", "ExecStart=/usr/bin/duskwelld", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.unitDir + " " + c.execStart);
        const std::string installed = root.path() + "/" + c.unitDir + "/duskwelld.service";
        writeFile(installed, "[Service]\n" + c.execStart + "\n");
        auto p = platform();
        ASSERT_EQ(p.setLoginItem(true), std::nullopt);  // a copy of ours from before goes when unneeded
        EXPECT_EQ(p.packagedUnit().has_value(), c.usesInstalled);
        EXPECT_EQ(fs::exists(p.unitFile()), !c.usesInstalled);
        ASSERT_EQ(p.setLoginItem(false), std::nullopt);
        EXPECT_FALSE(fs::exists(p.unitFile()));
        EXPECT_TRUE(fs::exists(installed)) << "the installed unit is never touched";
        fs::remove(installed);
        ASSERT_EQ(p.setLoginItem(true), std::nullopt);  // the stale copy for the next case
    }
    // A unit the user wrote in ~/.config is theirs: disabling keeps it.
    auto p = platform();
    writeFile(p.unitFile(), "[Service]\nExecStart=/home/me/bin/duskwelld\n");
    ASSERT_EQ(p.setLoginItem(false), std::nullopt);
    EXPECT_TRUE(fs::exists(p.unitFile()));
}

TEST_F(LinuxPlatformTest, LoginItemReportsSystemctlsErrorOrItsAbsence) {
    auto p = platform();
    EXPECT_TRUE(p.setLoginItem(true).has_value());  // no systemctl at all
    EXPECT_TRUE(env.commands.calls().empty());
    const auto systemctl = program("systemctl");
    env.commands.answer(systemctl, CommandResult{1, "Failed to connect to bus: No medium found\n"});
    EXPECT_EQ(p.setLoginItem(true), "Failed to connect to bus: No medium found");
    EXPECT_FALSE(p.loginItemEnabled());
}

TEST_F(LinuxPlatformTest, OpenURLUsesXdgOpen) {
    auto p = platform();
    EXPECT_FALSE(p.openURL("https://duskwell.app"));
    const auto open = program("xdg-open");
    EXPECT_TRUE(p.openURL("https://duskwell.app"));
    env.commands.answer(open, CommandResult{4, "no handler"});
    EXPECT_FALSE(p.openURL("x-unknown:thing"));
    EXPECT_EQ(env.commands.lines().front(), open + " https://duskwell.app");
}

// --- administrator rights ---

TEST_F(LinuxPlatformTest, PkexecRunsTheScriptThroughTheShellADismissalIsACancelAFailureKeepsItsOutput) {
    const auto pkexec = program("pkexec");
    EXPECT_EQ(platform().runAsAdmin("install -m 755 a b", "Duskwell wants to install its helper.").outcome,
              AdminOutcome::succeeded);
    ASSERT_EQ(env.commands.calls().size(), 1u);
    EXPECT_EQ(env.commands.calls()[0].path, pkexec);
    EXPECT_EQ(env.commands.calls()[0].args, (std::vector<std::string>{"/bin/sh", "-c", "install -m 755 a b"}));
    struct Case {
        int status;
        const char* output;
        AdminOutcome outcome;
        const char* message;
    };
    for (const auto& k : {Case{126, "", AdminOutcome::cancelled, ""},
                          Case{127, "Error executing command as another user: Request dismissed", AdminOutcome::cancelled, ""},
                          Case{1, "install: cannot create regular file\n", AdminOutcome::failed, "install: cannot create regular file"}}) {
        env.commands.answer(pkexec, CommandResult{k.status, k.output});
        const auto r = platform().runAsAdmin("install a b", "p");
        EXPECT_EQ(r.outcome, k.outcome) << k.output;
        EXPECT_EQ(r.message, k.message) << k.output;
    }
}

TEST_F(LinuxPlatformTest, PkexecWithoutAnAgentFallsBackToSudoOnATerminal) {
    const auto pkexec = program("pkexec");
    const auto sudo = program("sudo");
    env.commands.answer(pkexec, CommandResult{127, "Error executing command as another user: No authentication agent found."});
    const auto offTerminal = platform(false).runAsAdmin("true", "p");
    EXPECT_EQ(offTerminal.outcome, AdminOutcome::failed);
    EXPECT_NE(offTerminal.message.find("No authentication agent"), std::string::npos);
    EXPECT_TRUE(env.commands.linesContaining(sudo).empty());

    EXPECT_EQ(platform(true).runAsAdmin("true", "Install 100% safely?").outcome, AdminOutcome::succeeded);
    const auto sudoCalls = env.commands.linesContaining(sudo);
    ASSERT_EQ(sudoCalls.size(), 1u);
    EXPECT_EQ(env.commands.calls().back().args,
              (std::vector<std::string>{"-p", "Install 100%% safely? Password: ", "/bin/sh", "-c", "true"}));
}

TEST_F(LinuxPlatformTest, WithoutPkexecSudoIsUsedOnlyOnATerminal) {
    const auto sudo = program("sudo");
    const auto none = platform(false).runAsAdmin("true", "p");
    EXPECT_EQ(none.outcome, AdminOutcome::failed);
    EXPECT_NE(none.message.find("pkexec"), std::string::npos);
    EXPECT_TRUE(env.commands.calls().empty());

    env.commands.answer(sudo, CommandResult{1, "sudo: 3 incorrect password attempts\n"});
    const auto wrong = platform(true).runAsAdmin("true", "p");
    EXPECT_EQ(wrong.outcome, AdminOutcome::failed);
    EXPECT_EQ(wrong.message, "sudo: 3 incorrect password attempts");
}

}  // namespace
}  // namespace duskwell
#endif

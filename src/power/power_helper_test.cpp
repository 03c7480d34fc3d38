#include "power/power_helper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "core/localization.h"
#include "power/system_log.h"
#include "testing/fakes.h"

namespace duskwell {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::TestEnvironment;

// Collects the system-log lines written while it lives.
struct LogCapture {
    std::vector<std::string> lines;
    SystemLog::SinkScope scope{[this](const std::string& line) { lines.push_back(line); }};
};

// --- the install script ---

TEST(PowerHelperInstallScript, MacScriptIsExactQuotesEveryPathAndChecksTheHelpersHash) {
    const std::string script = PowerHelper::installScript(
        PowerHelper::macLayout(), "ann", "/Applications/Ann's Tools/Duskwell.app/Contents/Resources/duskwell-power");
    const std::string hash = PowerHelper::expectedHelperSha256();
    ASSERT_EQ(hash.size(), 64u);
    EXPECT_EQ(script,
              "set -e\n"
              "T=$(/usr/bin/mktemp /tmp/duskwell.XXXXXX)\n"
              "H=$(/usr/bin/mktemp /tmp/duskwell.XXXXXX)\n"
              "/bin/cp '/Applications/Ann'\\''s Tools/Duskwell.app/Contents/Resources/duskwell-power' \"$H\"\n"
              "[ \"$(/usr/bin/shasum -a 256 \"$H\")\" = \"" + hash + "  $H\" ]\n"
              "/bin/echo 'ann ALL=(root) NOPASSWD: /Library/PrivilegedHelperTools/duskwell-power' > \"$T\"\n"
              "/usr/sbin/visudo -cf \"$T\" >/dev/null\n"
              "/bin/mkdir -p '/Library/PrivilegedHelperTools'\n"
              "/usr/bin/install -o root -g wheel -m 755 \"$H\" '/Library/PrivilegedHelperTools/duskwell-power'\n"
              "/usr/bin/install -o root -g wheel -m 440 \"$T\" '/etc/sudoers.d/duskwell'\n"
              "/bin/rm -f \"$T\" \"$H\" '/etc/sudoers.d/owlguard' '/Library/PrivilegedHelperTools/owlguard-power'");
}

TEST(PowerHelperInstallScript, LinuxScriptHasTheSameStepsWithLinuxToolsPathsAndRootGroup) {
    const std::string script =
        PowerHelper::installScript(PowerHelper::linuxLayout(), "ann.b", "/opt/duskwell/libexec/duskwell-power");
    EXPECT_THAT(script, HasSubstr("\n/bin/cp '/opt/duskwell/libexec/duskwell-power' \"$H\"\n"));
    EXPECT_THAT(script, HasSubstr("[ \"$(/usr/bin/sha256sum \"$H\")\" = \"" + PowerHelper::expectedHelperSha256() + "  $H\" ]"));
    EXPECT_THAT(script, HasSubstr("/usr/bin/install -o root -g root -m 755 \"$H\" '/usr/local/libexec/duskwell-power'\n"));
    EXPECT_THAT(script, HasSubstr("/usr/bin/install -o root -g root -m 440 \"$T\" '/etc/sudoers.d/duskwell'\n"));
}

TEST(PowerHelperInstallScript, AHostileConfiguredPathStaysOneQuotedWord) {
    TestEnvironment env;
    const std::string hostile = env.home.path() + "/x'; touch /pwned; '";
    const std::string quoted = env.home.path() + "/x'\\''; touch /pwned; '\\'''";
    testing::EnvScope helper("DUSKWELL_TEST_HELPER", hostile);
    const std::string script = PowerHelper::installScript("ann", "/src/duskwell-power");
    EXPECT_THAT(script, HasSubstr("'ann ALL=(root) NOPASSWD: " + quoted + " > "));
    EXPECT_THAT(script, HasSubstr("\"$H\" '" + quoted + "\n"));
}

// --- the AppleScript source ---

TEST(PowerHelperAdminScript, JoinsLinesWithSemicolonsAndEscapesEveryQuoteAndBackslash) {
    EXPECT_EQ(PowerHelper::adminScriptSource("set -e\n\necho \"a\\b\" > \"$T\"\n", "Say \"hi\" \\ now"),
              "do shell script \"set -e; echo \\\"a\\\\b\\\" > \\\"$T\\\"\" "
              "with prompt \"Say \\\"hi\\\" \\ now\" with administrator privileges");
}

TEST(PowerHelperAdminScript, InstallScriptBecomesOneCommandLineWithNoBareQuote) {
    const std::string script = PowerHelper::installScript(PowerHelper::macLayout(), "ann", "/A\"pp's/duskwell-power");
    const std::string source = PowerHelper::adminScriptSource(script, "Duskwell needs permission once.");
    EXPECT_EQ(source.find('\n'), std::string::npos);

    const std::string head = "do shell script \"";
    const std::string tail = "\" with prompt \"Duskwell needs permission once.\" with administrator privileges";
    ASSERT_EQ(source.rfind(head, 0), 0u);
    ASSERT_GT(source.size(), head.size() + tail.size());
    ASSERT_EQ(source.substr(source.size() - tail.size()), tail);
    const std::string body = source.substr(head.size(), source.size() - head.size() - tail.size());

    // Undo the escaping: the body must be the script's lines joined by "; ", and no quote
    // or backslash may stand unescaped.
    std::string unescaped;
    for (size_t i = 0; i < body.size(); ++i) {
        ASSERT_NE(body[i], '"') << "bare quote at " << i << " in " << body;
        if (body[i] == '\\') {
            ASSERT_LT(i + 1, body.size());
            ASSERT_TRUE(body[i + 1] == '\\' || body[i + 1] == '"') << "bare backslash at " << i;
            ++i;
        }
        unescaped += body[i];
    }
    std::string joined = script;
    for (size_t at = 0; (at = joined.find('\n', at)) != std::string::npos;) joined.replace(at, 1, "; ");
    EXPECT_EQ(unescaped, joined);
    EXPECT_EQ(std::count(unescaped.begin(), unescaped.end(), ';'), 10);
}

// --- isInstalled and run ---

TEST(PowerHelperInstalled, NeedsTheFileAndASudoRuleThatWorksWithoutPassword) {
    TestEnvironment env;
    EXPECT_FALSE(PowerHelper::isInstalled());
    EXPECT_TRUE(env.commands.calls().empty()) << "no file: sudo is not even asked";

    env.installHelper();
    env.commands.answer("/usr/bin/sudo -n " + env.helperFile() + " version",
                        CommandResult{1, "sudo: a password is required\n"});
    EXPECT_FALSE(PowerHelper::isInstalled()) << "a file without a working rule is not installed";

    env.commands.answer("/usr/bin/sudo -n " + env.helperFile() + " version", CommandResult{0, ""});
    EXPECT_TRUE(PowerHelper::isInstalled());
    EXPECT_EQ(env.commands.lines().back(), "/usr/bin/sudo -n " + env.helperFile() + " version");
}

TEST(PowerHelperRun, PassesEachArgumentSeparatelyAfterSudoNoPrompt) {
    TestEnvironment env;
    LogCapture log;
    EXPECT_TRUE(PowerHelper::run({"powermode", "2"}));
    ASSERT_EQ(env.commands.calls().size(), 1u);
    EXPECT_EQ(env.commands.calls()[0].path, "/usr/bin/sudo");
    EXPECT_THAT(env.commands.calls()[0].args, ElementsAre("-n", env.helperFile(), "powermode", "2"));
    EXPECT_TRUE(log.lines.empty()) << "success writes no log line";
}

TEST(PowerHelperRun, ABrokenRuleLogsOneLineWithTheArgumentListAndAnswersFalse) {
    TestEnvironment env;
    LogCapture log;
    env.commands.answer("/usr/bin/sudo", CommandResult{1, "sudo: a password is required\n"});
    EXPECT_FALSE(PowerHelper::run({"lowpower", "0"}));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0], "Duskwell helper [\"lowpower\", \"0\"] 실패: sudo: a password is required");
}

TEST(PowerHelperRun, ArgumentListIsShownQuotedWithInnerQuotesEscaped) {
    EXPECT_EQ(PowerHelper::formatArguments({}), "[]");
    EXPECT_EQ(PowerHelper::formatArguments({"lid-off"}), "[\"lid-off\"]");
    EXPECT_EQ(PowerHelper::formatArguments({"a\"b", "c\\d"}), "[\"a\\\"b\", \"c\\\\d\"]");
}

// --- install and uninstall ---

TEST(PowerHelperInstall, RejectsUnsafeUserNamesBeforeAnyPromptAndAdmitsPlainLoginNames) {
    for (const std::string user : {"", "ann smith", "o'neil", "ann\"", "jos\xc3\xa9", "ann;id", "ann\n",
                                   "$(id)", "ann/..", "\xea\xb9\x80"}) {
        TestEnvironment env;
        env.platform.user = user;
        env.platform.resources["duskwell-power"] = "/app/duskwell-power";
        const auto error = PowerHelper::install();
        ASSERT_TRUE(error.has_value()) << user;
        EXPECT_EQ(error->kind(), PowerHelper::InstallError::Case::badUser) << user;
        EXPECT_TRUE(env.platform.adminScripts.empty()) << "prompt shown for " << user;
    }
    for (const std::string user : {"ann", "Ann.Lee", "build_bot-2", "a"})
        EXPECT_TRUE(PowerHelper::isValidUserName(user)) << user;
}

// Each failure before or at the prompt is its own error, worded in both languages.
TEST(PowerHelperInstall, MissingResourceCancelAndFailureAreKeptApart) {
    using E = PowerHelper::InstallError;
    struct Case {
        bool resource;
        AdminResult admin;
        E error;
        const char *english, *korean;
    };
    const Case cases[] = {
        {false, {AdminOutcome::succeeded, {}}, E::missingResource(), "Helper file is missing from the app.",
         "앱 번들에 도우미 파일이 없습니다."},
        {true, {AdminOutcome::cancelled, "User canceled."}, E::cancelled(), "Permission setup was cancelled.",
         "권한 설정이 취소되었습니다."},
        {true, {AdminOutcome::failed, "visudo: syntax error"}, E::failed("visudo: syntax error"),
         "Permission setup failed: visudo: syntax error", "권한 설정 실패: visudo: syntax error"},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.english);
        TestEnvironment env;
        if (k.resource) env.platform.resources["duskwell-power"] = "/app/duskwell-power";
        env.platform.adminResult = k.admin;
        const auto error = PowerHelper::install();
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(*error, k.error);
        EXPECT_EQ(env.platform.adminScripts.size(), k.resource ? 1u : 0u) << "no prompt without the helper file";
        EXPECT_EQ(error->localizedDescription(), k.english);
        Locale::overrideForTesting(true);
        EXPECT_EQ(error->localizedDescription(), k.korean);
    }
    Locale::overrideForTesting(true);
    EXPECT_EQ(E::badUser().localizedDescription(), "지원하지 않는 사용자 이름입니다.");
    Locale::overrideForTesting(std::nullopt);
}

TEST(PowerHelperInstall, RunsTheInstallScriptOnceWithTheConsentPromptInEachLanguage) {
    TestEnvironment env;
    env.platform.user = "ann";
    env.platform.resources["duskwell-power"] = "/app/Res/duskwell-power";
    EXPECT_FALSE(PowerHelper::install().has_value());
    Locale::overrideForTesting(true);
    EXPECT_FALSE(PowerHelper::install().has_value());
    ASSERT_EQ(env.platform.adminScripts.size(), 2u);
    EXPECT_EQ(env.platform.adminScripts[0].first, PowerHelper::installScript("ann", "/app/Res/duskwell-power"));
    EXPECT_EQ(env.platform.adminScripts[0].second,
              "Duskwell needs permission once to keep your computer awake with the lid closed.");
    EXPECT_EQ(env.platform.adminScripts[1].second,
              "Duskwell가 뚜껑을 닫아도 컴퓨터가 잠들지 않도록 전원 설정 권한을 한 번만 요청합니다.");
}

TEST(PowerHelperUninstall, GivesLidSleepBackBeforeRemovingTheFiles) {
    TestEnvironment env;
    std::vector<std::string> commandsBeforePrompt;
    env.platform.onAdminScript = [&](const std::string&) { commandsBeforePrompt = env.commands.lines(); };
    EXPECT_FALSE(PowerHelper::uninstall().has_value());
    EXPECT_THAT(commandsBeforePrompt, ElementsAre("/usr/bin/sudo -n " + env.helperFile() + " lid-off"));
    ASSERT_EQ(env.platform.adminScripts.size(), 1u);
    EXPECT_EQ(env.platform.adminScripts[0].first, "/bin/rm -f '/etc/sudoers.d/duskwell' '" + env.helperFile() + "'");
    EXPECT_EQ(env.platform.adminScripts[0].second, "Remove Duskwell power permission.");
}

TEST(PowerHelperUninstall, CancelledPromptIsReportedAfterLidOffWasSent) {
    TestEnvironment env;
    env.platform.adminResult = {AdminOutcome::cancelled, {}};
    const auto error = PowerHelper::uninstall();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->kind(), PowerHelper::InstallError::Case::cancelled);
    EXPECT_EQ(env.commands.linesContaining("lid-off").size(), 1u);
}

// --- the watchdog's script ---

TEST(PowerHelperWatchdogScript, PollsThePidThenRestoresLidAndRecordedValues) {
    TestEnvironment env;
    const std::string call = "'/usr/bin/sudo' -n '" + env.helperFile() + "'";
    const std::string wait = "while /bin/kill -0 77 2>/dev/null; do /bin/sleep 3; done\n";
    EXPECT_EQ(PowerHelper::watchdogScript(77, std::nullopt, std::nullopt), wait + call + " lid-off");
    EXPECT_EQ(PowerHelper::watchdogScript(77, 1, 0),
              wait + call + " lid-off\n" + call + " lowpower 1\n" + call + " powermode 0");
    EXPECT_THAT(PowerHelper::watchdogScript(77, std::nullopt, 1), Not(HasSubstr("lowpower")));
    EXPECT_EQ(PowerHelper::watchdogScript(77, std::nullopt, std::nullopt, PowerHelper::WatchdogGuard{"/h/it's", "ab12"}),
              wait + "[ \"$(/bin/cat '/h/it'\\''s' 2>/dev/null)\" = 'ab12' ] || exit 0\n" + call + " lid-off");
}

}  // namespace
}  // namespace duskwell

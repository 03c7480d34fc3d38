// `duskwell phone` as a user runs it: the real program in a temporary HOME, reading the
// identifiers the app's PhoneNotifier stored in the real settings file.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "core/json_file_settings.h"
#include "core/settings_keys.h"
#include "phone/phone_notifier.h"
#include "testing/fakes.h"

namespace duskwell::testing {
namespace {

struct CliRun {
    int status = -1;
    std::string output;  // stdout and stderr together
};

CliRun runCLI(const std::string& home, const std::string& args) {
    const std::string line = "HOME='" + home + "' LANG=C LC_ALL= LANGUAGE= '" DUSKWELL_BIN_DIR "/duskwell-cli' " + args + " 2>&1";
    CliRun run;
    FILE* pipe = ::popen(line.c_str(), "r");
    if (!pipe) return run;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) run.output.append(buf, n);
    const int raw = ::pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
}

class PhoneCLI : public ::testing::Test {
protected:
    std::string settingsPath() const { return env.home.path() + "/.duskwell/settings.json"; }

    // The app's first launch: its notifier creates the identifiers in the settings file.
    void launchAppOnce(bool enableAlerts) {
        std::filesystem::create_directories(env.home.path() + "/.duskwell");
        JsonFileSettings file(settingsPath());
        Services withFile = services();
        withFile.settings = &file;
        ServicesScope scope(withFile);
        PhoneNotifier phone;
        phone.setEnabled(enableAlerts);
        link = phone.subscribeURL();
        topic = phone.topic();
        control = phone.controlTopic();
        secret = file.string(SettingsKey::phoneSecret).value_or("");
    }

    TestEnvironment env;
    std::string link, topic, control, secret;
};

TEST_F(PhoneCLI, BeforeTheFirstLaunchItRefusesAndCreatesNothing) {
    const CliRun run = runCLI(env.home.path(), "phone");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "duskwell: No phone link yet. Start Duskwell once first.\n");
    EXPECT_FALSE(std::filesystem::exists(settingsPath()));
}

TEST_F(PhoneCLI, JsonPrintsTheLinkAndTopicsOnly) {
    launchAppOnce(true);
    const CliRun run = runCLI(env.home.path(), "phone --json");
    ASSERT_EQ(run.status, 0) << run.output;
    const auto json = nlohmann::json::parse(run.output);
    EXPECT_EQ(json, (nlohmann::json{{"subscribeURL", link}, {"topic", topic}, {"controlTopic", control}}));
    EXPECT_EQ(runCLI(env.home.path(), "phone --qr").status, 2) << "an unknown option is a usage error";
}

TEST_F(PhoneCLI, TextPrintsLinkTopicAndAPlainCodeWhenPiped) {
    launchAppOnce(false);
    const CliRun run = runCLI(env.home.path(), "phone");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(run.output.rfind("Scan the QR code with your phone's camera, or open the link:\n\n" + link +
                                   "\n\nAlert topic: " + topic + "\nPhone alerts are off",
                               0),
              0u)
        << run.output;
    EXPECT_EQ(run.output.find('\x1b'), std::string::npos);  // piped: no colour codes
    EXPECT_GT(std::count(run.output.begin(), run.output.end(), '\n'), 25);  // the code's rows
    // The secret appears once: at the end of the link.
    EXPECT_EQ(run.output.find(secret), run.output.find(link) + link.size() - secret.size());
    EXPECT_EQ(run.output.find(secret, run.output.find(secret) + 1), std::string::npos);
}

}  // namespace
}  // namespace duskwell::testing

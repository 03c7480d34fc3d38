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

// `input`, when given, is the command's standard input.
CliRun runCLI(const std::string& home, const std::string& args, const std::string& input = "") {
    const std::string feed = input.empty() ? "" : "printf '%s\\n' '" + input + "' | ";
    const std::string line =
        feed + "HOME='" + home + "' LANG=C LC_ALL= LANGUAGE= '" DUSKWELL_BIN_DIR "/duskwell-cli' " + args + " 2>&1";
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
    EXPECT_EQ(json, (nlohmann::json{{"subscribeURL", link},
                                     {"topic", topic},
                                     {"controlTopic", control},
                                     {"server", "https://ntfy.sh"},
                                     {"tokenSet", false}}));
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

// Without a running app the options write the settings file; what is printed afterwards
// names the server and says whether a token is set, never the token itself.
TEST_F(PhoneCLI, ServerAndTokenOptionsStoreTheSettingsAndNeverPrintTheToken) {
    launchAppOnce(true);
    const std::string token = "tk_7sHq2RkLw9ZpXc4VbN8mT3yJd6Ge1";
    const std::string server = "https://ntfy.example.com:8443";
    struct Step {
        std::string args;
        std::string input;  // standard input
        int status;
        std::string expectedServer;  // in the settings afterwards ("" absent)
        bool tokenStored;
        std::string outputHas;
    };
    const Step steps[] = {
        {"phone --server HTTPS://ntfy.example.com:8443/ --token " + token, "", 0, server, true,
         "Phone alerts server: " + server + " (with an access token)"},
        {"phone", "", 0, server, true, "@" + server + "\n\nAlert topic: " + topic + "\nntfy server: " + server +
                                          " (with an access token)\n"},
        {"phone --json", "", 0, server, true, "\"tokenSet\": true"},
        {"phone --no-token --json", "", 0, server, false, "\"tokenSet\":false"},
        {"phone --token -", token, 0, server, true, "(with an access token)"},
        {"phone --server ftp://ntfy.example.com", "", 2, server, true, "not an ntfy server address"},
        {"phone --server https://ntfy.example.com/alerts", "", 2, server, true, "not an ntfy server address"},
        {"phone --server https://user@ntfy.example.com", "", 2, server, true, "not an ntfy server address"},
        {"phone --token 'tk_with blank'", "", 2, server, true, "printable characters without blanks"},
        {"phone --public-server", "", 0, "", true, "Phone alerts server: https://ntfy.sh (with an access token)"},
        {"phone --json", "", 0, "", true, "\"subscribeURL\": \"" + link + "\""},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.args);
        const CliRun run = runCLI(env.home.path(), step.args, step.input);
        EXPECT_EQ(run.status, step.status) << run.output;
        EXPECT_NE(run.output.find(step.outputHas), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find("tk_"), std::string::npos) << run.output;
        const auto stored = nlohmann::json::parse(readFile(settingsPath()).value_or("{}"));
        EXPECT_EQ(stored.value("phone.server", ""), step.expectedServer);
        EXPECT_EQ(stored.contains("phone.token"), step.tokenStored);
        if (step.tokenStored) {
            EXPECT_EQ(stored.value("phone.token", ""), token);
        }
    }
}

}  // namespace
}  // namespace duskwell::testing

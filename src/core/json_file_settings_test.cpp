#include "core/json_file_settings.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "testing/fakes.h"

namespace duskwell {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

class JsonFileSettingsTest : public ::testing::Test {
protected:
    TempDir dir;
    std::string file() const { return dir.path() + "/.duskwell/settings.json"; }
};

TEST_F(JsonFileSettingsTest, ValuesSurviveARestartWithTheirTypes) {
    {
        JsonFileSettings s(file());
        s.setInteger("mode", 2);
        s.setBool("stopOnHeat", false);
        s.setString("phone.topic", "dw-abc");
    }
    JsonFileSettings again(file());
    EXPECT_EQ(again.integer("mode"), 2);
    EXPECT_EQ(again.boolean("stopOnHeat"), false);
    EXPECT_EQ(again.string("phone.topic"), "dw-abc");
    EXPECT_EQ(again.string("mode"), std::nullopt);

    const auto doc = nlohmann::json::parse(*readFile(file()));
    EXPECT_EQ(doc["mode"], 2);
    EXPECT_EQ(doc["stopOnHeat"], false);
    EXPECT_EQ(doc["phone.topic"], "dw-abc");
}

TEST_F(JsonFileSettingsTest, EveryChangeIsOnDiskAtOnceAndRemovalIsToo) {
    JsonFileSettings s(file());
    s.setInteger("batteryFloor", 20);
    EXPECT_EQ(nlohmann::json::parse(*readFile(file()))["batteryFloor"], 20);
    s.remove("batteryFloor");
    EXPECT_FALSE(nlohmann::json::parse(*readFile(file())).contains("batteryFloor"));
    // No temporary files are left beside it.
    int entries = 0;
    for ([[maybe_unused]] const auto& e : fs::directory_iterator(fs::path(file()).parent_path())) ++entries;
    EXPECT_EQ(entries, 1);
}

TEST_F(JsonFileSettingsTest, DefaultsAreNotWrittenAndStoredValuesWin) {
    writeFile(file(), R"({"mode": 1})");
    JsonFileSettings s(file());
    s.registerDefaults({{"mode", std::int64_t{0}}, {"selectedMinutes", std::int64_t{60}}});
    EXPECT_EQ(s.integer("mode"), 1);
    EXPECT_EQ(s.integer("selectedMinutes"), 60);
    EXPECT_EQ(nlohmann::json::parse(*readFile(file())), nlohmann::json::parse(R"({"mode": 1})"));
}

TEST_F(JsonFileSettingsTest, FileIsReadableByItsOwnerOnly) {
    JsonFileSettings s(file());
    s.setString("phone.secret", "s3cret");
    const auto perms = fs::status(file()).permissions();
    EXPECT_EQ(perms & (fs::perms::group_all | fs::perms::others_all), fs::perms::none);
}

// Not JSON, or JSON we cannot use: the text is kept aside for a trace and the defaults apply.
TEST_F(JsonFileSettingsTest, AFileWeCannotUseIsKeptAsideAndDefaultsApply) {
    const std::string deep = "{\"x\": " + std::string(100000, '[') + std::string(100000, ']') + "}";
    for (const std::string& contents : {std::string("mode = 2\n"), std::string("[1, 2, 3]"), deep}) {
        SCOPED_TRACE(contents.substr(0, 20));
        writeFile(file(), contents);
        JsonFileSettings s(file());
        s.registerDefaults({{"mode", std::int64_t{0}}});
        EXPECT_EQ(s.integer("mode"), 0);
        EXPECT_EQ(readFile(file() + ".corrupt"), contents);
        EXPECT_FALSE(fs::exists(file()));
        s.setInteger("mode", 1);  // and writing works again
        EXPECT_EQ(readFile(file() + ".corrupt"), contents) << "the trace stays";
        EXPECT_EQ(nlohmann::json::parse(*readFile(file()))["mode"], 1);
        fs::remove(file());
    }
}

TEST_F(JsonFileSettingsTest, TextThatIsNotUtf8IsWrittenBackWithoutThrowing) {
    JsonFileSettings s(file());
    s.setString("phone.topic", "\xff\xfe");  // e.g. pasted from a broken terminal
    s.setBool("lockOnLidClose", false);
    const auto doc = nlohmann::json::parse(*readFile(file()), nullptr, false);
    ASSERT_TRUE(doc.is_object());
    EXPECT_EQ(doc["lockOnLidClose"], false);
}

TEST_F(JsonFileSettingsTest, MembersOfOtherTypesAreWrittenBackUntouched) {
    writeFile(file(), R"({"mode": 1, "future": {"list": [1, 2]}, "ratio": 0.5})");
    JsonFileSettings s(file());
    s.setBool("lockOnLidClose", false);
    const auto doc = nlohmann::json::parse(*readFile(file()));
    EXPECT_EQ(doc["future"]["list"], nlohmann::json::parse("[1, 2]"));
    EXPECT_EQ(doc["ratio"], 0.5);
    EXPECT_EQ(doc["mode"], 1);
    EXPECT_EQ(doc["lockOnLidClose"], false);
}

TEST_F(JsonFileSettingsTest, AnUnwritableFolderKeepsValuesInMemoryWithoutCrashing) {
    // A folder that cannot be created (a plain file stands in its place) fails even for root.
    writeFile(dir.path() + "/blocked", "not a folder");
    JsonFileSettings s(dir.path() + "/blocked/settings.json");
    s.setInteger("mode", 2);
    EXPECT_EQ(s.integer("mode"), 2);
    EXPECT_FALSE(s.lastWriteSucceeded());
    EXPECT_EQ(readFile(dir.path() + "/blocked"), "not a folder");
}

}  // namespace
}  // namespace duskwell

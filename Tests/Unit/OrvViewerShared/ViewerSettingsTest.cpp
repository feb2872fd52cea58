#include <limits>
#include <string>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/ViewerError.h"
#include "OrvViewerShared/ViewerSettings.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

Json validSettings() {
    return Json{{"serverBaseUrl", "https://desk.example"},
                {"viewerToken", "token-1"},
                {"auditIntervalMinutes", 720},
                {"heartbeatIntervalSeconds", 300},
                {"commandPollIntervalSeconds", 60},
                {"chatPollIntervalSeconds", 3},
                {"controlReconnectMaxSeconds", 60},
                {"notificationsEnabled", false}};
}

Json settingsWith(const char* key, Json value) {
    Json settings = validSettings();
    settings[key] = std::move(value);
    return settings;
}

ViewerSettings validated(const Json& json) {
    auto settings = json.get<ViewerSettings>();
    settings.validate();
    return settings;
}

class ViewerSettingsLoadTest : public testing::Test {
protected:
    TemporaryDirectory folder;
    SettingsSearch search{SystemRoot(folder.path("root")), std::nullopt, folder.path("cwd"),
                          folder.path("bundle")};
    const std::string configLocation = search.root.locate(paths::configPath);
    const std::string legacyLocation = search.root.locate(paths::legacyConfigPath);

    static void put(const std::string& path, const std::string& text) {
        createDirectories(parentPath(path));
        writeFileAtomically(path, text);
    }
    static void putNamed(const std::string& path, const std::string& token) {
        put(path, settingsWith("viewerToken", token).dump());
    }
    std::string tokenLoaded() const { return ViewerSettings::load(search).viewerToken; }

    void expectConfigurationError(const std::string& message) const {
        try {
            ViewerSettings::load(search);
            FAIL() << "loaded";
        } catch (const ViewerError& error) {
            EXPECT_EQ(error.kind(), ViewerError::Kind::configuration);
            EXPECT_EQ(error.message(), message);
        }
    }
};

TEST_F(ViewerSettingsLoadTest, searchesThePlacesInTheirOrder) {
    const std::string bundled = search.mainBundlePath + "/Contents/Resources/viewer.settings.json";
    search.environmentPath = folder.path("from-environment.json");
    const std::vector<std::pair<std::string, std::string>> places{
        {*search.environmentPath, "environment"},
        {configLocation, "standard"},
        {legacyLocation, "legacy"},
        {search.currentDirectory + "/viewer.settings.json", "cwd viewer"},
        {search.currentDirectory + "/wsparo.settings.json", "cwd wsparo"},
        {bundled, "bundle"}};
    for (const auto& [path, token] : places)
        putNamed(path, token);

    for (const auto& [path, token] : places) {
        EXPECT_EQ(tokenLoaded(), token);
        EXPECT_THAT(readFile(configLocation, 10000), testing::HasSubstr(token)) << "copied";
        remove(path.c_str());
        remove(configLocation.c_str());  // loading from elsewhere copies the settings there
        if (token == "environment") putNamed(configLocation, "standard");
    }
    expectConfigurationError("wsparo.settings.json was not found.");
}

TEST_F(ViewerSettingsLoadTest, anEnvironmentPathThatLeadsNowhereIsPassedOver) {
    putNamed(configLocation, "standard");
    search.environmentPath = folder.path("missing.json");
    EXPECT_EQ(tokenLoaded(), "standard");
    search.environmentPath = "";
    EXPECT_EQ(tokenLoaded(), "standard");
}

TEST_F(ViewerSettingsLoadTest, legacySettingsAreCopiedNormalisedToTheStandardPlace) {
    Json legacy = settingsWith("serverBaseUrl", " https://desk.example/// ");
    legacy["chatPollIntervalSeconds"] = 99;
    legacy.erase("notificationsEnabled");
    put(legacyLocation, legacy.dump());

    const ViewerSettings settings = ViewerSettings::load(search);

    EXPECT_EQ(settings.serverBaseUrl, "https://desk.example");
    const std::string copy = readFile(configLocation, 10000);
    EXPECT_EQ(copy,
              "{\n"
              "  \"auditIntervalMinutes\": 720,\n"
              "  \"chatPollIntervalSeconds\": 5,\n"
              "  \"commandPollIntervalSeconds\": 60,\n"
              "  \"controlReconnectMaxSeconds\": 60,\n"
              "  \"heartbeatIntervalSeconds\": 300,\n"
              "  \"notificationsEnabled\": true,\n"
              "  \"serverBaseUrl\": \"https://desk.example\",\n"
              "  \"viewerToken\": \"token-1\"\n"
              "}\n");
    EXPECT_TRUE(fileExists(legacyLocation));
}

TEST_F(ViewerSettingsLoadTest, settingsAtTheStandardPlaceAreNotRewritten) {
    const std::string text = settingsWith("chatPollIntervalSeconds", 99).dump();
    put(configLocation, text);
    ViewerSettings::load(search);
    EXPECT_EQ(readFile(configLocation, 10000), text);
}

TEST_F(ViewerSettingsLoadTest, theRetiredHostIsReplacedInPlace) {
    put(configLocation,
        settingsWith("serverBaseUrl", " HTTPS://Desk.Dalvenor.Example:8443/api/ ").dump());

    EXPECT_EQ(ViewerSettings::load(search).serverBaseUrl, "https://wsparo.brenvox.example");

    const Json stored = parseJson(readFile(configLocation, 10000));
    EXPECT_EQ(stored["serverBaseUrl"], "https://wsparo.brenvox.example");
}

TEST_F(ViewerSettingsLoadTest, aCopyThatCannotBeWrittenDoesNotMatter) {
    putNamed(search.currentDirectory + "/viewer.settings.json", "cwd");
    put(search.root.locate("/Library"), "a file where the folder should be");
    EXPECT_EQ(tokenLoaded(), "cwd");
}

TEST_F(ViewerSettingsLoadTest, whatIsNoReadableFileIsAnErrorAndNoHang) {
    createDirectories(configLocation);
    EXPECT_THROW(ViewerSettings::load(search), FileError);
    remove(configLocation.c_str());

    ASSERT_EQ(mkfifo(configLocation.c_str(), 0600), 0);
    EXPECT_THROW(ViewerSettings::load(search), FileError);
    remove(configLocation.c_str());

    put(configLocation, validSettings().dump() + std::string(1 << 20, ' '));
    EXPECT_THROW(ViewerSettings::load(search), FileError);
}

TEST_F(ViewerSettingsLoadTest, aCandidateThatCannotBeReadIsNotPassedOver) {
    search.environmentPath = folder.path("named.json");
    putNamed(configLocation, "behind it");
    createDirectories(*search.environmentPath);
    EXPECT_THROW(ViewerSettings::load(search), FileError);
    remove(search.environmentPath->c_str());

    ASSERT_EQ(mkfifo(search.environmentPath->c_str(), 0600), 0);
    EXPECT_THROW(ViewerSettings::load(search), FileError);
    remove(search.environmentPath->c_str());
    EXPECT_EQ(tokenLoaded(), "behind it");
}

TEST_F(ViewerSettingsLoadTest, damagedFilesAreDecodingErrorsThatQuoteNothing) {
    for (const char* text :
         {"", "{", "[]", "null", "\"viewerToken\"", "{\"viewerToken\": secret-9}"}) {
        put(configLocation, text);
        try {
            ViewerSettings::load(search);
            FAIL() << text;
        } catch (const DecodingError& error) {
            EXPECT_THAT(error.what(), testing::Not(testing::HasSubstr("secret-9")));
        }
    }
}

TEST(ViewerSettingsDecodingTest, everyKeyButNotificationsIsRequiredAndTyped) {
    for (const char* key :
         {"serverBaseUrl", "viewerToken", "auditIntervalMinutes", "heartbeatIntervalSeconds",
          "commandPollIntervalSeconds", "chatPollIntervalSeconds", "controlReconnectMaxSeconds"}) {
        Json missing = validSettings();
        missing.erase(key);
        EXPECT_THROW(missing.get<ViewerSettings>(), DecodingError) << key;
        EXPECT_THROW(settingsWith(key, nullptr).get<ViewerSettings>(), DecodingError) << key;
        EXPECT_THROW(settingsWith(key, Json::array()).get<ViewerSettings>(), DecodingError) << key;
        try {
            settingsWith(key, true).get<ViewerSettings>();
            FAIL() << key;
        } catch (const DecodingError& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(key));
        }
    }
    EXPECT_THROW(settingsWith("notificationsEnabled", 1).get<ViewerSettings>(), DecodingError);
}

TEST(ViewerSettingsDecodingTest, numbersAreSigned64BitIntegers) {
    for (const char* number : {"9223372036854775808", "-9223372036854775809", "5.0", "5e1"}) {
        EXPECT_THROW(
            settingsWith("auditIntervalMinutes", Json::parse(number)).get<ViewerSettings>(),
            DecodingError)
            << number;
    }
    EXPECT_EQ(settingsWith("auditIntervalMinutes", Json::parse("9223372036854775807"))
                  .get<ViewerSettings>()
                  .auditIntervalMinutes,
              std::numeric_limits<std::int64_t>::max());
}

TEST(ViewerSettingsDecodingTest, notificationsAreOnByDefaultAndUnknownKeysIgnored) {
    Json settings = validSettings();
    settings.erase("notificationsEnabled");
    settings["server_base_url"] = 7;
    EXPECT_TRUE(settings.get<ViewerSettings>().notificationsEnabled);
    EXPECT_FALSE(validSettings().get<ViewerSettings>().notificationsEnabled);
}

TEST(ViewerSettingsValidationTest, clampsEveryNumberAtItsEdges) {
    const struct {
        const char* key;
        std::int64_t ViewerSettings::* field;
        std::int64_t given;
        std::int64_t expected;
    } rows[] = {
        {"auditIntervalMinutes", &ViewerSettings::auditIntervalMinutes, -1, 5},
        {"auditIntervalMinutes", &ViewerSettings::auditIntervalMinutes, 4, 5},
        {"auditIntervalMinutes", &ViewerSettings::auditIntervalMinutes, 5, 5},
        {"auditIntervalMinutes", &ViewerSettings::auditIntervalMinutes, 6, 6},
        {"heartbeatIntervalSeconds", &ViewerSettings::heartbeatIntervalSeconds, 29, 60},
        {"heartbeatIntervalSeconds", &ViewerSettings::heartbeatIntervalSeconds, 30, 300},
        {"heartbeatIntervalSeconds", &ViewerSettings::heartbeatIntervalSeconds, 31, 60},
        {"heartbeatIntervalSeconds", &ViewerSettings::heartbeatIntervalSeconds, 60, 60},
        {"heartbeatIntervalSeconds", &ViewerSettings::heartbeatIntervalSeconds, 61, 61},
        {"commandPollIntervalSeconds", &ViewerSettings::commandPollIntervalSeconds, 10, 30},
        {"commandPollIntervalSeconds", &ViewerSettings::commandPollIntervalSeconds, 31, 31},
        {"chatPollIntervalSeconds", &ViewerSettings::chatPollIntervalSeconds, 0, 1},
        {"chatPollIntervalSeconds", &ViewerSettings::chatPollIntervalSeconds, 5, 5},
        {"chatPollIntervalSeconds", &ViewerSettings::chatPollIntervalSeconds, 9, 5},
        {"controlReconnectMaxSeconds", &ViewerSettings::controlReconnectMaxSeconds, 1, 5},
        {"controlReconnectMaxSeconds", &ViewerSettings::controlReconnectMaxSeconds, 300, 300},
        {"controlReconnectMaxSeconds", &ViewerSettings::controlReconnectMaxSeconds, 1000, 300},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(validated(settingsWith(row.key, row.given)).*row.field, row.expected)
            << row.key << " " << row.given;
    }
}

TEST(ViewerSettingsValidationTest, trimsTheTextsAndKeepsTheSchemesCase) {
    Json json = settingsWith("serverBaseUrl", " \tHTTPS://Desk.example/path///\n");
    json["viewerToken"] = "\n abc \u00a0";
    const ViewerSettings settings = validated(json);
    EXPECT_EQ(settings.serverBaseUrl, "HTTPS://Desk.example/path");
    EXPECT_EQ(settings.viewerToken, "abc");
    EXPECT_TRUE(settings.hasViewerToken());
    EXPECT_FALSE(validated(settingsWith("viewerToken", "  ")).hasViewerToken());
}

TEST(ViewerSettingsValidationTest, onlyHttpsUrlsWithAHostAreAccepted) {
    for (const char* url :
         {"http://desk.example", "https://", "https:///path", "desk.example", "ftp://desk.example",
          "", "https://desk example", "/", "https://\u00a0", "https://\u3000/x"}) {
        auto settings = settingsWith("serverBaseUrl", url).get<ViewerSettings>();
        settings.viewerToken = " token ";
        settings.auditIntervalMinutes = 1;
        settings.heartbeatIntervalSeconds = 1;
        settings.commandPollIntervalSeconds = 1;
        settings.chatPollIntervalSeconds = 99;
        settings.controlReconnectMaxSeconds = 1;
        try {
            settings.validate();
            FAIL() << url;
        } catch (const ViewerError& error) {
            EXPECT_STREQ(error.what(), "serverBaseUrl must be a valid HTTPS URL.");
        }
        // All the rest is in order even when the URL is not.
        EXPECT_EQ(settings.viewerToken, "token");
        EXPECT_EQ(settings.auditIntervalMinutes, 5);
        EXPECT_EQ(settings.heartbeatIntervalSeconds, 60);
        EXPECT_EQ(settings.commandPollIntervalSeconds, 30);
        EXPECT_EQ(settings.chatPollIntervalSeconds, 5);
        EXPECT_EQ(settings.controlReconnectMaxSeconds, 5);
    }
    EXPECT_NO_THROW(validated(settingsWith("serverBaseUrl", "https://desk.example:8443/a/b")));
}

TEST(ViewerSettingsMigrationTest, onlyTheRetiredHostMoves) {
    for (const char* url : {"https://other.example", "https://x.desk.dalvenor.example", "not a url",
                            "", "https://desk.dalvenor.example.evil"}) {
        auto settings = settingsWith("serverBaseUrl", url).get<ViewerSettings>();
        EXPECT_FALSE(settings.migrateLegacyServerHost()) << url;
        EXPECT_EQ(settings.serverBaseUrl, url);
    }
    auto retired =
        settingsWith("serverBaseUrl", "http://DESK.dalvenor.example/").get<ViewerSettings>();
    EXPECT_TRUE(retired.migrateLegacyServerHost());
    EXPECT_EQ(retired.serverBaseUrl, "https://wsparo.brenvox.example");
}

}  // namespace
}  // namespace orv

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemProcessRunner.h"
#include "OrvViewerShared/Update/UpdaterScript.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestDirectory.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

const UpdaterScriptPlan ordinary{"https://desk.example/packages/1/Wsparo-Brenvox-macOS-0.3.0.pkg",
                                 std::string(64, 'a'),
                                 104857600,
                                 "0.2.55",
                                 "0.3.0",
                                 "manual"};

const std::vector<std::string> hostileVersions{"1'2",
                                               "1\"2",
                                               "$(touch canary)",
                                               "`touch canary`",
                                               "1; touch canary",
                                               "a b\tc",
                                               "1\n2",
                                               "1\n\n'\ntouch canary\n'",
                                               "../../x",
                                               "/etc/passwd",
                                               "..",
                                               ".",
                                               "-rf",
                                               "a\\b",
                                               "\\",
                                               "$HOME",
                                               "!!",
                                               "*",
                                               "~",
                                               "\x01\x7F",
                                               "'\"'\"'$(touch canary)'",
                                               "\" $(touch canary) \"",
                                               "@BANNER@",
                                               "@PLAN@",
                                               "Zażółć",
                                               std::string(5000, 'x'),
                                               "%s%n",
                                               "</string>",
                                               "\r\n",
                                               "${x:-y}",
                                               "1\\"};

UpdaterScriptPlan offering(const std::string& version) {
    UpdaterScriptPlan plan = ordinary;
    plan.availableVersion = version;
    plan.packageUrl = "https://desk.example/$(touch%20canary)`x`;'a.pkg?a=$HOME&b=1";
    plan.reason = version;
    return plan;
}

/// The text must equal the golden file; ORV_WRITE_GOLDEN=1 rewrites that instead.
void expectGolden(const std::string& name, const std::string& text) {
    const std::string file = testFile("Golden/" + name);
    if (std::getenv("ORV_WRITE_GOLDEN") != nullptr) std::ofstream(file) << text;
    EXPECT_EQ(text, readFile(file, 1 << 20)) << "ORV_WRITE_GOLDEN=1 rewrites " << file;
}

/// The lines of the plan.
std::string planOf(const std::string& script) {
    const std::size_t begin = script.find("  UPDATE_DIR=");
    return script.substr(begin, script.find("\n\n# Replaces one version") + 1 - begin);
}

class UpdaterScriptTest : public testing::Test {
protected:
    struct BashEnd {
        ProcessEnd end;
        std::string output;
        std::string errors;
    };

    BashEnd bash(std::vector<std::string> arguments) {
        BashEnd result;
        ProcessRequest request;
        request.executable = "/bin/bash";
        request.arguments = std::move(arguments);
        request.onStandardOutput = [&](std::string_view bytes) { result.output += bytes; };
        request.onStandardError = [&](std::string_view bytes) { result.errors += bytes; };
        result.end = loop.run(runner.run(std::move(request))).end;
        return result;
    }

    std::string write(const std::string& name, const std::string& script) {
        std::ofstream(folder.path(name)) << script;
        return folder.path(name);
    }

    /// What the command prints at the end of each script, in place of its last line, which begins
    /// the work. One bash for all of them, in the test's own folder.
    std::vector<std::string> atTheEndOf(const std::vector<UpdaterScriptPlan>& plans,
                                        const std::string& command) {
        std::vector<std::string> arguments{
            "-c", "cd \"$1\"; shift; for file; do (. \"$file\"); printf '\\0'; done", "bash",
            folder.path()};
        for (const UpdaterScriptPlan& plan : plans) {
            std::string script = updaterScript(plan);
            EXPECT_THAT(script, testing::EndsWith("\nmain\n"));
            script.resize(script.size() - std::string("main\n").size());
            const std::string name = "script" + std::to_string(arguments.size());
            arguments.push_back(write(name, script + "trap - ERR\n" + command + "\n"));
        }
        const BashEnd ran = bash(std::move(arguments));
        EXPECT_EQ(ran.errors, "");
        EXPECT_FALSE(std::filesystem::exists(folder.path("canary")));
        return partsOf(ran.output);
    }

    static std::vector<std::string> partsOf(const std::string& text) {
        std::vector<std::string> parts;
        std::istringstream stream(text);
        for (std::string part; std::getline(stream, part, '\0');)
            parts.push_back(part);
        return parts;
    }

    TemporaryDirectory folder;
    TestLoop loop;
    SystemProcessRunner runner{loop.executor()};
};

TEST_F(UpdaterScriptTest, isByteForByteWhatItWas) {
    expectGolden("UpdaterScript.sh", updaterScript(ordinary));
}

TEST_F(UpdaterScriptTest, quotesWhateverAVersionHolds) {
    expectGolden("UpdaterScriptHostilePlan.txt",
                 planOf(updaterScript(offering("1'2\"3$(id)`id`\\/ \n\t!"))));
}

TEST_F(UpdaterScriptTest, isValidWhateverAVersionHolds) {
    for (const char* version : {"0.3.0", "1'2\"3$(id)`id`\\/ \n\t!", "\" $(", "'\"`", "1\\"}) {
        const BashEnd checked = bash({"-n", write("script", updaterScript(offering(version)))});
        EXPECT_EQ(checked.end, ProcessEnd(Exited{0})) << version;
        EXPECT_EQ(checked.errors, "") << version;
    }
}

TEST_F(UpdaterScriptTest, itsValuesAreTextsWhateverAVersionHolds) {
    std::vector<UpdaterScriptPlan> plans;
    std::vector<std::string> expected;
    for (const std::string& version : hostileVersions) {
        plans.push_back(offering(version));
        expected.insert(
            expected.end(),
            {version, jsonLiteral(version), updatePackagePath(version), plans.back().packageUrl,
             "Wsparo Brenvox macOS update 0.2.55 -> " + version + ", reason=" + version,
             jsonLiteral("Aktualizacja do wersji " + version +
                         " została zainstalowana. Aplikacja uruchamia się ponownie.")});
    }
    EXPECT_EQ(atTheEndOf(plans, R"(printf '%s\0%s\0%s\0%s\0%s\0%s' "$AVAILABLE_VERSION_RAW" )"
                                R"("$AVAILABLE_VERSION_JSON" "$PKG_PATH" "$PKG_URL" "$BANNER" )"
                                R"("$INSTALLED_MESSAGE_JSON")"),
              expected);
}

TEST_F(UpdaterScriptTest, aStatusIsJsonWhateverAVersionHolds) {
    std::vector<UpdaterScriptPlan> plans;
    for (const std::string& version : hostileVersions)
        plans.push_back(offering(version));
    const std::vector<std::string> statuses =
        atTheEndOf(plans, R"(status_json installed "$INSTALLED_MESSAGE_JSON")");
    ASSERT_EQ(statuses.size(), hostileVersions.size());
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        const Json status = parseJson(statuses[i]);
        EXPECT_EQ(status.at("availableVersion"), hostileVersions[i]);
        EXPECT_EQ(status.at("currentVersion"), "0.2.55");
        EXPECT_EQ(status.at("logPath"), "/Library/Logs/Wsparo Brenvox/wsparo-update.log");
        EXPECT_EQ(status.size(), 6U);
    }
}

TEST_F(UpdaterScriptTest, aVersionMayHoldNul) {
    EXPECT_EQ(atTheEndOf({offering(std::string("1\0002", 3))},
                         R"(printf '%s %s' "$AVAILABLE_VERSION_RAW" "$AVAILABLE_VERSION_JSON")"),
              std::vector<std::string>{"12 \"1\\u00002\""});
}

TEST_F(UpdaterScriptTest, usesNothingThatTheMacsBashLacks) {
    const std::string script = updaterScript(ordinary);
    for (const char* newer :
         {"declare -A", "local -A", "mapfile", "readarray", "|&", "&>>", ",,}", "^^}", "coproc",
          "${!", "@Q}", "wait -n", "EPOCHSECONDS", "inherit_"}) {
        EXPECT_EQ(script.find(newer), std::string::npos) << newer;
    }
}

TEST(UpdatePackagePathTest, staysInsideTheUpdatesFolder) {
    const std::string prefix =
        "/Library/Application Support/Wsparo Brenvox/updates/Wsparo-Brenvox-macOS-";
    EXPECT_EQ(updatePackagePath("0.3.0"), prefix + "0.3.0.pkg");
    EXPECT_EQ(updatePackagePath("../../x"), prefix + "_._.._x.pkg");
    EXPECT_EQ(updatePackagePath("a/b\\c\n\x7F"), prefix + "a_b_c__.pkg");
    EXPECT_EQ(updatePackagePath(".hidden"), prefix + "_hidden.pkg");
    EXPECT_EQ(updatePackagePath("Zażółć 1"), prefix + "Zażółć 1.pkg");
    EXPECT_EQ(updatePackagePath(""), prefix + ".pkg");
}

TEST(UpdatePackagePathTest, aNameIsNoLongerThanNamesMayBeAndCutsNoCharacter) {
    const std::string path =
        updatePackagePath(std::string(149, 'x') + "żżżż" + std::string(500, 'y'));
    EXPECT_EQ(lastPathComponent(path), "Wsparo-Brenvox-macOS-" + std::string(149, 'x') + ".pkg");
}

TEST(JsonLiteralTest, escapesWhatJsonNeedsAndNoSlash) {
    EXPECT_EQ(jsonLiteral("a/b"), "\"a/b\"");
    EXPECT_EQ(jsonLiteral("ż\"\\\n"), "\"ż\\\"\\\\\\n\"");
    EXPECT_EQ(jsonLiteral("\xFF"), "\"\"");
}

}  // namespace
}  // namespace orv

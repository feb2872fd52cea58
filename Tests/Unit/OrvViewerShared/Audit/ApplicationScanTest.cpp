#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/ApplicationScan.h"
#include "Support/AuditFixture.h"
#include "Support/ScopedEnvironment.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string entry(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>";
}

class ApplicationScanTest : public AuditFixture {
protected:
    // A test may have moved the time zone.
    void TearDown() override { ::tzset(); }

    std::vector<std::string> foundPaths() const {
        std::vector<std::string> paths;
        for (const ApplicationBundle& found : scanApplications(root))
            paths.push_back(found.path);
        return paths;
    }

    void named(const std::string& path, const std::string& name) {
        application(path, entry("CFBundleName", name));
    }
};

TEST_F(ApplicationScanTest, findsNothingWithoutFolders) {
    EXPECT_THAT(scanApplications(root), IsEmpty());
}

TEST_F(ApplicationScanTest, looksIntoTheThreeFoldersOnly) {
    named("/Applications/B.app", "B");
    named("/System/Applications/C.app", "C");
    named("/System/Applications/Utilities/A.app", "A");
    named("/Applications/Folder/D.app", "D");
    named("/Applications/NoBundle", "E");
    EXPECT_THAT(foundPaths(), ElementsAre("/System/Applications/Utilities/A.app",
                                          "/Applications/B.app", "/System/Applications/C.app"));
}

TEST_F(ApplicationScanTest, sortsByNameIgnoringCaseAndKeepsTheScanOrder) {
    named("/Applications/1.app", "zeta");
    named("/Applications/2.app", "Alpha");
    named("/System/Applications/3.app", "alpha");
    named("/System/Applications/Utilities/4.app", "ALPHA");
    named("/Applications/5.app", "beta");
    EXPECT_THAT(foundPaths(), ElementsAre("/Applications/2.app", "/System/Applications/3.app",
                                          "/System/Applications/Utilities/4.app",
                                          "/Applications/5.app", "/Applications/1.app"));
}

TEST_F(ApplicationScanTest, leavesOutTheSecondWayToABundle) {
    named("/System/Applications/Notes.app", "Notes");
    folder("/Applications");
    ASSERT_EQ(::symlink("../System/Applications/Notes.app",
                        root.locate("/Applications/Notes.app").c_str()),
              0);
    EXPECT_THAT(foundPaths(), ElementsAre("/Applications/Notes.app"));
}

TEST_F(ApplicationScanTest, skipsDamagedLists) {
    file("/Applications/Truncated.app/Contents/Info.plist",
         "<plist version=\"1.0\"><dict><key>CFBundleName</key>");
    file("/Applications/Empty.app/Contents/Info.plist", "");
    file("/Applications/List.app/Contents/Info.plist",
         "<plist version=\"1.0\"><array></array></plist>");
    file("/Applications/Binary.app/Contents/Info.plist", "bplist00\x01\xff\xff");
    folder("/Applications/Without.app/Contents");
    folder("/Applications/Folder.app/Contents/Info.plist");
    folder("/Applications/Loop.app/Contents");
    ASSERT_EQ(
        ::symlink("Info.plist", root.locate("/Applications/Loop.app/Contents/Info.plist").c_str()),
        0);
    folder("/Applications/Pipe.app/Contents");
    ASSERT_EQ(::mkfifo(root.locate("/Applications/Pipe.app/Contents/Info.plist").c_str(), 0600), 0);
    named("/Applications/Good.app", "Good");
    EXPECT_THAT(foundPaths(), ElementsAre("/Applications/Good.app"));
}

TEST_F(ApplicationScanTest, skipsAListOfFiftyMegabytes) {
    named("/Applications/Huge.app", "Huge");
    std::filesystem::resize_file(root.locate("/Applications/Huge.app/Contents/Info.plist"),
                                 50'000'000);
    EXPECT_THAT(foundPaths(), IsEmpty());
}

TEST_F(ApplicationScanTest, readsWrappedApplications) {
    file("/Applications/Phone.app/WrappedBundle/Info.plist",
         "<plist version=\"1.0\"><dict>" + entry("CFBundleName", "Phone") + "</dict></plist>");
    EXPECT_THAT(foundPaths(), ElementsAre("/Applications/Phone.app"));
}

TEST_F(ApplicationScanTest, survivesAnUnreadableFolderAndALinkInACircle) {
    folder("/System");
    ASSERT_EQ(::symlink("Applications", root.locate("/System/Applications").c_str()), 0);
    named("/Applications/Good.app", "Good");
    EXPECT_THAT(foundPaths(), ElementsAre("/Applications/Good.app"));
}

TEST_F(ApplicationScanTest, aFolderThatCannotBeReadHidesOnlyItself) {
    file("/Applications", "no folder");
    named("/System/Applications/Good.app", "Good");
    EXPECT_THAT(foundPaths(), ElementsAre("/System/Applications/Good.app"));
}

TEST_F(ApplicationScanTest, takesStrangeNamesAsTheyAre) {
    const std::string name = "\"Firma\"\n'Ż\\t";
    application("/Applications/" + name + ".app", "");
    const std::vector<ApplicationBundle> found = scanApplications(root);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, name);
    EXPECT_EQ(found[0].path, "/Applications/" + name + ".app");
}

TEST_F(ApplicationScanTest, datesTheInstallationInLocalTime) {
    const test::ScopedEnvironment zone("TZ", "Europe/Warsaw");
    ::tzset();
    named("/Applications/A.app", "A");
    // 2026-03-10T23:30:00Z is already the next day in Warsaw.
    const timespec times[2] = {{1773185400, 0}, {1773185400, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, root.locate("/Applications/A.app").c_str(), times, 0), 0);
    EXPECT_EQ(scanApplications(root).at(0).installedAt, "2026-03-11");
}

TEST_F(ApplicationScanTest, repairsFileNamesThatAreNoUtf8) {
    application("/Applications/Zl\xf3y.app", entry("CFBundleVersion", "1"));
    const std::vector<ApplicationBundle> found = scanApplications(root);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, "Zl\xEF\xBF\xBDy");
    EXPECT_EQ(found[0].path, "/Applications/Zl\xf3y.app");
}

TEST(ApplicationOfTest, prefersTheDisplayName) {
    const ApplicationBundle found =
        applicationOf("/Applications/File.app",
                      parseJson(R"({"CFBundleDisplayName": "Shown", "CFBundleName": "Short",
                      "CFBundleShortVersionString": "1.2", "CFBundleVersion": "345",
                      "CFBundleIdentifier": "com.acme.file",
                      "NSHumanReadableCopyright": "© Acme", "CFBundleGetInfoString": "info"})"));
    EXPECT_EQ(found.name, "Shown");
    EXPECT_EQ(found.version, "1.2");
    EXPECT_EQ(found.bundleIdentifier, "com.acme.file");
    EXPECT_EQ(found.copyright, "© Acme");
    EXPECT_EQ(found.infoString, "info");
}

TEST(ApplicationOfTest, fallsBackKeyByKey) {
    const ApplicationBundle found =
        applicationOf("/Applications/File.app",
                      parseJson(R"({"CFBundleName": "Short", "CFBundleVersion": "345"})"));
    EXPECT_EQ(found.name, "Short");
    EXPECT_EQ(found.version, "345");
    EXPECT_EQ(applicationOf("/Applications/Żaba \"2\".app", Json::object()).name, "Żaba \"2\"");
    EXPECT_EQ(applicationOf("/Applications/File.app", Json::object()).version, "");
}

TEST(ApplicationOfTest, takesWrongTypesAsMissing) {
    const ApplicationBundle found = applicationOf(
        "/Applications/File.app",
        parseJson(R"({"CFBundleDisplayName": 7, "CFBundleName": ["x"], "CFBundleVersion": {},
                      "CFBundleIdentifier": null, "NSHumanReadableCopyright": true})"));
    EXPECT_EQ(found.name, "File");
    EXPECT_EQ(found.version, "");
    EXPECT_EQ(found.bundleIdentifier, "");
    EXPECT_EQ(found.copyright, "");
}

}  // namespace
}  // namespace orv

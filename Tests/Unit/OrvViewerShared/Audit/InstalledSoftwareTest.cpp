#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/InstalledSoftware.h"
#include "Support/AuditFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class InstalledSoftwareTest : public AuditFixture {
protected:
    std::string publisherOf(ApplicationBundle application) {
        AuditRun run = newRun();
        return loop.run(softwarePublisher(run, std::move(application))).value_or("none");
    }

    void metadata(const std::string& bundle, std::string answer,
                  std::chrono::nanoseconds delay = {}) {
        tool("/usr/bin/mdls",
             {"-raw", "-name", "kMDItemCopyright", "-name", "kMDItemAuthors", root.locate(bundle)},
             std::move(answer), delay);
    }

    void signature(const std::string& bundle, const std::string& authority,
                   std::chrono::nanoseconds delay = {}) {
        processes.answer(root.locate("/usr/bin/codesign"),
                         {"-d", "--verbose=4", root.locate(bundle)},
                         {.standardError = "Executable=/x\nAuthority=" + authority +
                                           "\nAuthority=Apple Root CA\n",
                          .delay = delay});
    }

    const std::string path = "/Applications/Tool.app";
};

TEST_F(InstalledSoftwareTest, applesOwnNeedNoTool) {
    EXPECT_EQ(publisherOf({.path = path, .bundleIdentifier = "com.apple.Notes"}), "Apple Inc.");
    EXPECT_EQ(publisherOf({.path = "/System/Applications/Utilities/X.app",
                           .copyright = "© 2020 Somebody else"}),
              "Apple Inc.");
    EXPECT_THAT(processes.calls, IsEmpty());
}

TEST_F(InstalledSoftwareTest, theInformationListComesBeforeTheTools) {
    EXPECT_EQ(publisherOf({.path = path, .copyright = "© 2020 Acme", .infoString = "© Other"}),
              "Acme");
    EXPECT_EQ(publisherOf({.path = path, .copyright = "© 2020", .infoString = "© Other"}), "Other");
    EXPECT_THAT(processes.calls, IsEmpty());
}

TEST_F(InstalledSoftwareTest, theMetadataComeBeforeTheSignature) {
    metadata(path, std::string("Copyright 2020 Acme\0(null)", 26));
    signature(path, "Developer ID Application: Other (AB12)");
    EXPECT_EQ(publisherOf({.path = path}), "Acme");
    EXPECT_THAT(calledTools(), ElementsAre("/usr/bin/mdls"));
}

TEST_F(InstalledSoftwareTest, theAuthorsStandInForTheCopyright) {
    metadata(path, std::string("(null)\0(\n    \"Anna Nowak\"\n)", 28));
    EXPECT_EQ(publisherOf({.path = path}), "Anna Nowak");
}

TEST_F(InstalledSoftwareTest, theSignatureIsReadFromStandardError) {
    metadata(path, std::string("(null)\0(null)", 13));
    signature(path, "Developer ID Application: Acme sp. z o.o. (AB12CD34EF)");
    EXPECT_EQ(publisherOf({.path = path, .bundleIdentifier = "com.google.x"}), "Acme sp. z o.o.");
}

TEST_F(InstalledSoftwareTest, theStoresSignatureLeavesItToTheIdentifier) {
    signature(path, "Apple Mac OS Application Signing");
    EXPECT_EQ(publisherOf({.path = path, .bundleIdentifier = "org.mozilla.firefox"}), "Mozilla");
}

TEST_F(InstalledSoftwareTest, theIdentifierIsTheLastResort) {
    EXPECT_EQ(publisherOf({.path = path, .bundleIdentifier = "com.valvesoftware.steam"}),
              "Valve Corporation");
    EXPECT_EQ(publisherOf({.path = path, .bundleIdentifier = "com.nobody.x"}), "none");
    EXPECT_THAT(calledTools(), ElementsAre("/usr/bin/mdls", "/usr/bin/codesign", "/usr/bin/mdls",
                                           "/usr/bin/codesign"));
}

TEST_F(InstalledSoftwareTest, listsEveryApplicationWithItsKeys) {
    application("/Applications/Zeta.app",
                "<key>CFBundleShortVersionString</key><string>2.0</string>"
                "<key>NSHumanReadableCopyright</key><string>© 2020 Acme</string>");
    application("/Applications/alpha.app", "<key>CFBundleName</key><string>alpha</string>");
    AuditRun run = newRun();

    Json records = loop.run(installedSoftware(run));

    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0]["installed_at"].get<std::string>().size(), 10U);
    for (Json& record : records)
        record.erase("installed_at");
    EXPECT_EQ(records, parseJson(R"([{"name": "alpha", "version": "", "publisher": ""},
                                     {"name": "Zeta", "version": "2.0", "publisher": "Acme"}])"));
}

TEST_F(InstalledSoftwareTest, toolsRunSideBySideButOnlyEightAtOnce) {
    for (int i = 0; i < 40; ++i) {
        const std::string bundle = "/Applications/" + std::to_string(i) + ".app";
        application(bundle, "<key>CFBundleName</key><string>x</string>");
        metadata(bundle, std::string("(null)\0(null)", 13), 100ms);
        signature(bundle, "Developer ID Application: Acme (AB12)", 100ms);
    }
    AuditRun run = newRun();
    const MonotonicTime begin = clock.monotonicNow();

    const Json records = loop.run(installedSoftware(run));

    EXPECT_EQ(records.size(), 40U);
    EXPECT_EQ(processes.mostAtOnce, 8U);
    EXPECT_EQ(clock.monotonicNow() - begin, 1s);
}

TEST_F(InstalledSoftwareTest, hangingToolsDoNotStopTheSearch) {
    application("/Applications/A.app",
                "<key>CFBundleIdentifier</key><string>com.figma.Desktop</string>");
    metadata("/Applications/A.app", "(null)", 1h);
    signature("/Applications/A.app", "x", 1h);
    AuditRun run = newRun();
    const MonotonicTime begin = clock.monotonicNow();

    EXPECT_EQ(loop.run(installedSoftware(run))[0]["publisher"], "Figma");
    EXPECT_LT(clock.monotonicNow() - begin, 5min);
}

TEST_F(InstalledSoftwareTest, copesWithFiveThousandApplications) {
    const std::string list = "<key>NSHumanReadableCopyright</key><string>© 2020 Acme</string>";
    for (int i = 0; i < 5000; ++i) {
        // Written plainly: five thousand synced files would take too long.
        const std::string bundle = root.locate("/Applications/" + std::to_string(i) + ".app");
        std::filesystem::create_directories(bundle + "/Contents");
        std::ofstream(bundle + "/Contents/Info.plist")
            << "<plist version=\"1.0\"><dict>" + list + "</dict></plist>";
    }
    AuditRun run = newRun();

    const Json records = loop.run(installedSoftware(run));

    ASSERT_EQ(records.size(), 5000U);
    EXPECT_EQ(records[4999]["publisher"], "Acme");
}

}  // namespace
}  // namespace orv

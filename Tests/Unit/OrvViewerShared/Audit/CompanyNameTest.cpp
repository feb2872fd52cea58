#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/CompanyName.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Name = std::optional<std::string>;

TEST(NormalizedCompanyNameTest, trimsWhiteSpaceQuotesAndBrackets) {
    EXPECT_EQ(normalizedCompanyName(" \"[Acme] \" "), Name("Acme"));
    EXPECT_EQ(normalizedCompanyName("('Acme')"), Name("Acme"));
    EXPECT_EQ(normalizedCompanyName("{Zakład Żółć}"), Name("Zakład Żółć"));
}

TEST(NormalizedCompanyNameTest, refusesWhatIsNoName) {
    for (const char* text :
         {"", "  ", "(null)", " (null) ", "unknown", "UnKnown", "'unknown'", "()[]{}"}) {
        EXPECT_EQ(normalizedCompanyName(text), std::nullopt) << text;
    }
}

TEST(NormalizedCompanyNameTest, refusesNamesOf256CharactersAndMore) {
    std::string letters;
    for (int i = 0; i < 255; ++i)
        letters += "ż";
    EXPECT_EQ(normalizedCompanyName(letters), Name(letters));
    EXPECT_EQ(normalizedCompanyName(letters + "z"), std::nullopt);
}

struct Case {
    const char* text;
    const char* company;
};

class CopyrightTest : public testing::TestWithParam<Case> {};

TEST_P(CopyrightTest, leavesTheName) {
    EXPECT_EQ(companyNameFromCopyright(GetParam().text), Name(GetParam().company));
}

INSTANTIATE_TEST_SUITE_P(
    Styles, CopyrightTest,
    testing::Values(Case{"Copyright © 2024 Acme. All rights reserved.", "Acme"},
                    Case{"  © 2010-2024 Acme sp. z o.o. ", "Acme sp. z o.o"},
                    Case{"Copyright (c) 2010–2024 by Acme, ALL RIGHTS RESERVED", "Acme"},
                    Case{"(C) Acme 1999 - 2003", "Acme"},
                    Case{"COPYRIGHT(C) Acme Corporation 2002-2015 All rights reserved.",
                         "Acme Corporation"},
                    Case{"Copyright 2008-10 Acme Systems", "Acme Systems"},
                    Case{"℗ 2017 Acme", "Acme"},
                    Case{"Copyright ©2001 —2022, Acme, Inc.", "Acme, Inc"},
                    Case{"© Acme Ltd., 2006.", "Acme Ltd"}, Case{"[© 2024] {Acme}", "Acme"},
                    Case{"Acme\n  Studio ©\t2020", "Acme Studio"},
                    Case{"Copyright 2020 Byron Labs", "Byron Labs"},
                    Case{"Copyrighted Works 2024", "Copyrighted Works"},
                    Case{"© 2024 Studio 54321", "Studio 54321"}, Case{"Studio2024 ©", "Studio2024"},
                    Case{"Firma „Żubr” © 2024", "Firma „Żubr”"}));

TEST(CopyrightTest, givesNothingWhenNothingIsLeft) {
    for (const char* text :
         {"", "Copyright", "© 2024", "Copyright © 2010-2024. All rights reserved.",
          "All rights reserved. Acme", "[2024]", "(null)", "Unknown"}) {
        EXPECT_EQ(companyNameFromCopyright(text), std::nullopt) << text;
    }
}

TEST(CopyrightTest, surviveBinary) {
    EXPECT_EQ(companyNameFromCopyright("\xff\xa9 Acme"), Name("\xff\xa9 Acme"));
}

TEST(SigningAuthorityTest, losesItsLabelAndTheTeam) {
    for (const char* label : {"Developer ID Application:", "3rd Party Mac Developer Application:",
                              "Apple Distribution:", "Developer ID Installer:", "Mac Developer:"}) {
        EXPECT_EQ(companyNameFromSigningAuthority(std::string(label) + " Acme (Poland) (AB12)"),
                  Name("Acme (Poland"))
            << label;
    }
    EXPECT_EQ(companyNameFromSigningAuthority("Developer ID Application: Acme sp. z o.o. (A1B2)"),
              Name("Acme sp. z o.o."));
    EXPECT_EQ(companyNameFromSigningAuthority("Software Signing"), Name("Software Signing"));
    EXPECT_EQ(companyNameFromSigningAuthority("Mac Developer: (AB12)"), std::nullopt);
}

TEST(CompanyOfSignatureTest, doesNotTakeTheStoreForTheCompany) {
    EXPECT_EQ(companyOfSignature("Apple Mac OS Application Signing", "com.acme.app"), std::nullopt);
    EXPECT_EQ(companyOfSignature("Apple Mac OS Application Signing", "com.apple.app"),
              Name("Apple Inc."));
    EXPECT_EQ(companyOfSignature("Apple Development: Jan (AB12)", "com.acme.app"), std::nullopt);
    EXPECT_EQ(companyOfSignature("Apple Distribution: Acme (AB12)", "com.acme.app"), Name("Acme"));
    EXPECT_EQ(companyOfSignature("Developer ID Application: Acme (AB12)", ""), Name("Acme"));
}

TEST(FirstSigningAuthorityTest, isTheFirstTrimmedLineThatSaysSo) {
    EXPECT_EQ(firstSigningAuthority("Executable=/x\n  Authority=One (A)\r\nAuthority=Two\n"),
              Name("One (A)"));
    EXPECT_EQ(firstSigningAuthority("NoAuthority=One\nSignature=adhoc"), std::nullopt);
    EXPECT_EQ(firstSigningAuthority(""), std::nullopt);
}

TEST(BundleIdentifierTest, knowsSomeCompaniesByTheirPrefix) {
    EXPECT_EQ(publisherFromBundleIdentifier("com.apple.x"), Name("Apple Inc."));
    EXPECT_EQ(publisherFromBundleIdentifier("com.microsoft.x"), Name("Microsoft Corporation"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.google.x"), Name("Google LLC"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.adobe.x"), Name("Adobe Inc."));
    EXPECT_EQ(publisherFromBundleIdentifier("org.mozilla.x"), Name("Mozilla"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.teamviewer.x"), Name("TeamViewer Germany GmbH"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.synology.x"), Name("Synology Inc."));
    EXPECT_EQ(publisherFromBundleIdentifier("com.elgato.x"), Name("Elgato"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.parallels.x"),
              Name("Parallels International GmbH"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.vmware.x"), Name("VMware"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.jetbrains.x"), Name("JetBrains"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.docker.x"), Name("Docker Inc."));
    EXPECT_EQ(publisherFromBundleIdentifier("com.spotify.x"), Name("Spotify"));
    EXPECT_EQ(publisherFromBundleIdentifier("us.zoom.x"), Name("Zoom Video Communications"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.rustdesk.x"), Name("RustDesk"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.figma.x"), Name("Figma"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.getdropbox.x"), Name("Dropbox"));
    EXPECT_EQ(publisherFromBundleIdentifier("COM.ValveSoftware.steam"), Name("Valve Corporation"));
    EXPECT_EQ(publisherFromBundleIdentifier("com.applesauce.x"), std::nullopt);
    EXPECT_EQ(publisherFromBundleIdentifier(""), std::nullopt);
}

TEST(SpotlightValueTest, knowsHowNoValueIsWritten) {
    EXPECT_EQ(cleanSpotlightValue(" © 2024 Acme \n"), Name("© 2024 Acme"));
    for (const char* value : {"", " ", "(null)", " (null)\n", "null", "a <null> b"}) {
        EXPECT_EQ(cleanSpotlightValue(value), std::nullopt) << value;
    }
}

TEST(SpotlightValuesTest, areSeparatedByZeroBytes) {
    using namespace std::string_literals;
    EXPECT_THAT(spotlightValues("© 2024 Acme\0(null)"s), ElementsAre("© 2024 Acme", "(null)"));
    EXPECT_THAT(spotlightValues("(null)\0(\n    \"Jan \\U017bak\",\n    Bob\n)"s),
                ElementsAre("(null)", "Jan Żak", "Bob"));
    EXPECT_THAT(spotlightValues("(\n)"), IsEmpty());
    EXPECT_THAT(spotlightValues("(\n \"a\\\"b\",\n \"\\Ud\",\n \"\\\n)"),
                ElementsAre("a\"b", "\\Ud", "\"\\"));
}

}  // namespace
}  // namespace orv

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Base64.h"
#include "OrvPlatform/File.h"
#include "OrvViewerShared/Commands/CommandError.h"
#include "OrvViewerShared/Commands/FileCommands.h"
#include "Support/ErrorText.h"
#include "Support/FakeClock.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FileCommandsTest : public testing::Test {
protected:
    Json list(const Json& payload) { return std::get<Json>(loop.run(commands.listFiles(payload))); }
    Json download(const Json& payload) {
        return Json::parse(std::get<SerializedJson>(loop.run(commands.downloadFile(payload))).text);
    }
    Json upload(const Json& payload) {
        return std::get<Json>(loop.run(commands.uploadFile(payload)));
    }

    template <typename Operation>
    void expectError(Operation operation, int code, const std::string& description) {
        try {
            operation();
            FAIL() << "It succeeded, instead of: " << description;
        } catch (const CommandError& error) {
            EXPECT_EQ(error.domain(), "OrvViewerFileTransfer");
            EXPECT_EQ(error.code(), code);
            EXPECT_EQ(error.what(), description);
        }
    }

    void put(const std::string& path, const std::string& content = "x") {
        createDirectories(parentPath(root.locate(path)));
        std::ofstream(root.locate(path)) << content;
    }
    void makeFolder(const std::string& path) { createDirectories(root.locate(path)); }
    std::string content(const std::string& path) const {
        return readFile(root.locate(path), 100'000'000);
    }
    static std::string encoded(std::string_view bytes) {
        std::string out;
        appendBase64(out, bytes);
        return out;
    }
    static std::vector<std::string> namesOf(const Json& listing) {
        std::vector<std::string> names;
        for (const Json& item : listing.at("items"))
            names.push_back(item.at("name"));
        return names;
    }

    TemporaryDirectory folder;
    SystemRoot root{folder.path()};
    FakeClock clock;
    TestLoop loop;
    WorkerPool workers;
    FileCommands commands{{workers, clock, root}};
};

TEST_F(FileCommandsTest, listsFoldersFirstInTheOrderPeopleExpect) {
    put("/d/b");
    put("/d/a.txt");
    put("/d/ł");
    put("/d/l");
    put("/d/M");
    put("/d/.hidden");
    makeFolder("/d/Z");
    makeFolder("/d/A");
    EXPECT_THAT(namesOf(list({{"path", "/d"}})),
                ElementsAre("A", "Z", ".hidden", "a.txt", "b", "l", "ł", "M"));
}

TEST_F(FileCommandsTest, describesEachEntryItself) {
    put("/d/file", "12345");
    makeFolder("/d/sub");
    std::filesystem::create_directory_symlink(root.locate("/d/sub"), root.locate("/d/link"));
    const timespec times[2] = {{1772356502, 999'000'000}, {1772356502, 999'000'000}};
    for (const char* path : {"/d/file", "/d/sub", "/d/link"}) {
        ASSERT_EQ(utimensat(AT_FDCWD, root.locate(path).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    const Json items = list({{"path", " /d/ \n"}}).at("items");
    const Json expectedSub{{"name", "sub"},       {"path", "/d/sub"},
                           {"kind", "folder"},    {"is_directory", true},
                           {"is_symlink", false}, {"modified_at", "2026-03-01T09:15:02Z"}};
    const Json expectedFile{{"name", "file"},
                            {"path", "/d/file"},
                            {"kind", "file"},
                            {"is_directory", false},
                            {"size_bytes", 5},
                            {"is_symlink", false},
                            {"modified_at", "2026-03-01T09:15:02Z"}};
    const Json expectedLink{{"name", "link"},
                            {"path", "/d/link"},
                            {"kind", "file"},
                            {"is_directory", false},
                            {"size_bytes", root.locate("/d/sub").size()},
                            {"is_symlink", true},
                            {"modified_at", "2026-03-01T09:15:02Z"}};
    EXPECT_THAT(items, ElementsAre(expectedSub, expectedFile, expectedLink));
}

TEST_F(FileCommandsTest, aListingHasExactlyItsKeys) {
    makeFolder("/Users");
    EXPECT_EQ(list({{"path", "/Users"}}), (Json{{"platform", "macos"},
                                                {"path", "/Users"},
                                                {"parent_path", "/"},
                                                {"items", Json::array()},
                                                {"item_count", 0},
                                                {"max_items", 500},
                                                {"collected_at", "2026-03-01T09:15:02Z"}}));
}

TEST_F(FileCommandsTest, theRootHasNoParentAndIsTheDefault) {
    put("/only");
    for (const Json& payload : {Json::object(), Json{{"path", "/"}}, Json{{"path", 5}}}) {
        const Json listing = list(payload);
        EXPECT_EQ(listing.at("path"), "/");
        EXPECT_EQ(listing.at("parent_path"), nullptr);
        EXPECT_EQ(listing.at("items").at(0).at("path"), "/only");
    }
    makeFolder("/a/b");
    EXPECT_EQ(list({{"path", "/a/b/"}}).at("parent_path"), "/a");
}

TEST_F(FileCommandsTest, whatIsNoFolderIsNotFound) {
    put("/file");
    for (const char* path : {"/missing", "/file", "/file/x"}) {
        expectError([&] { list({{"path", path}}); }, 404,
                    std::string("Directory not found: ") + path);
    }
}

TEST_F(FileCommandsTest, aPathWithANulIsNotThePathInFrontOfIt) {
    put("/d/x");
    const std::string folderPath("/d\0e", 4);
    const std::string filePath("/d/x\0y", 6);
    expectError([&] { list({{"path", folderPath}}); }, 404, "Directory not found: /d");
    EXPECT_THROW(download({{"path", filePath}}), FileError);
    EXPECT_THROW(upload({{"target_path", filePath}, {"content_base64", ""}, {"overwrite", true}}),
                 FileError);
    EXPECT_EQ(content("/d/x"), "x");
}

TEST_F(FileCommandsTest, aLinkToAFolderCanBeListed) {
    put("/d/x");
    std::filesystem::create_directory_symlink("d", root.locate("/link"));
    EXPECT_THAT(namesOf(list({{"path", "/link"}})), ElementsAre("x"));
}

TEST_F(FileCommandsTest, theNumberOfItemsIsClampedAndTheFirstAreKept) {
    for (int i = 10; i < 40; ++i)
        put("/d/" + std::to_string(i));
    const Json ten = list({{"path", "/d"}, {"max_items", 5}});
    EXPECT_EQ(ten.at("max_items"), 10);
    EXPECT_EQ(ten.at("item_count"), 10);
    EXPECT_EQ(namesOf(ten).front(), "10");
    EXPECT_EQ(namesOf(ten).back(), "19");
    EXPECT_EQ(list({{"path", "/d"}, {"max_items", "5000"}}).at("max_items"), 2000);
    EXPECT_EQ(list({{"path", "/d"}, {"max_items", true}}).at("max_items"), 500);
    EXPECT_EQ(list({{"path", "/d"}}).at("item_count"), 30);
}

TEST_F(FileCommandsTest, namesThatAreNoUtf8DoNotBreakTheResult) {
    put("/d/bad\xff name");
    const Json listing = list({{"path", "/d"}});
    EXPECT_EQ(listing.at("item_count"), 1);
    EXPECT_THAT(compactJson(listing), HasSubstr("bad\xEF\xBF\xBD name"));
}

TEST_F(FileCommandsTest, rootsAreTheWellKnownFoldersThatExistThenTheVolumes) {
    makeFolder("/Users");
    makeFolder("/private/tmp");
    std::filesystem::create_directory_symlink("private/tmp", root.locate("/tmp"));
    makeFolder("/Volumes/zewn");
    makeFolder("/Volumes/.hidden");
    makeFolder("/Volumes/Łódź");
    std::filesystem::create_directory_symlink("/", root.locate("/Volumes/Macintosh HD"));
    const Json listing = list({{"path", "VOLUMES"}});

    EXPECT_EQ(listing.at("path"), "");
    EXPECT_EQ(listing.at("parent_path"), nullptr);
    EXPECT_EQ(listing.at("root_kind"), "volumes");
    EXPECT_EQ(listing.at("item_count"), 7);
    EXPECT_EQ(listing.at("max_items"), 500);
    EXPECT_EQ(listing.at("platform"), "macos");
    EXPECT_EQ(listing.at("collected_at"), "2026-03-01T09:15:02Z");
    const Json& items = listing.at("items");
    EXPECT_EQ(items.at(0), (Json{{"name", "Macintosh HD"},
                                 {"path", "/"},
                                 {"kind", "drive"},
                                 {"label", "System"},
                                 {"is_directory", true},
                                 {"is_ready", true}}));
    EXPECT_EQ(items.at(1), (Json{{"name", "Uzytkownicy"},
                                 {"path", "/Users"},
                                 {"kind", "folder"},
                                 {"label", "Katalogi domowe"},
                                 {"is_directory", true},
                                 {"is_ready", true}}));
    EXPECT_EQ(items.at(2).at("name"), "Woluminy");
    EXPECT_EQ(items.at(2).at("label"), "Dyski i udzialy");
    EXPECT_EQ(items.at(3), (Json{{"name", "Tymczasowe"},
                                 {"path", "/tmp"},
                                 {"kind", "folder"},
                                 {"label", "Folder tymczasowy"},
                                 {"is_directory", true},
                                 {"is_ready", true}}));
    EXPECT_EQ(items.at(4).at("path"), "/Volumes/Łódź");
    EXPECT_EQ(items.at(5).at("path"), "/Volumes/Macintosh HD");
    EXPECT_EQ(items.at(5).at("is_directory"), false) << "a link, listed under its own path";
    EXPECT_EQ(items.at(6).at("label"), "Wolumin");
    EXPECT_EQ(items.at(6).at("kind"), "drive");
    EXPECT_GT(items.at(6).at("size_bytes"), 0);
    EXPECT_GE(items.at(6).at("size_bytes"), items.at(6).at("free_bytes"));
}

TEST_F(FileCommandsTest, everyWordForTheRootsWorks) {
    for (const char* path : {"", "  \n", "roots", "Drives", "vOLUMES"}) {
        EXPECT_EQ(list({{"path", path}}).at("root_kind"), "volumes") << path;
    }
    EXPECT_EQ(list({{"path", "roots"}}).at("item_count"), 1) << "only / exists here";
}

TEST_F(FileCommandsTest, fixedRootsComeFirstWhenTheListIsCut) {
    for (int i = 0; i < 20; ++i)
        makeFolder("/Volumes/v" + std::to_string(i));
    const Json listing = list({{"path", "roots"}, {"max_items", 10}});
    EXPECT_EQ(listing.at("item_count"), 10);
    EXPECT_EQ(namesOf(listing).at(1), "Woluminy");
}

TEST_F(FileCommandsTest, downloadsAFile) {
    put("/d/zażółć \"1\".bin", std::string("a\0b", 3));
    EXPECT_EQ(download({{"path", " /d/zażółć \"1\".bin\n"}}),
              (Json{{"path", "/d/zażółć \"1\".bin"},
                    {"file_name", "zażółć \"1\".bin"},
                    {"size_bytes", 3},
                    {"content_base64", "YQBi"},
                    {"collected_at", "2026-03-01T09:15:02Z"}}));
    put("/empty", "");
    EXPECT_EQ(download({{"path", "/empty"}}).at("content_base64"), "");
    EXPECT_EQ(download({{"path", "/empty"}}).at("size_bytes"), 0);
}

TEST_F(FileCommandsTest, largeFilesComeWhole) {
    std::string bytes(1'000'003, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7);
    put("/big", bytes);
    EXPECT_EQ(decodeBase64(download({{"path", "/big"}}).at("content_base64").get<std::string>()),
              bytes);
}

TEST_F(FileCommandsTest, theDownloadLimitIsExactAndClamped) {
    put("/f", std::string(1024, 'x'));
    put("/g", std::string(1025, 'x'));
    EXPECT_EQ(download({{"path", "/f"}, {"max_bytes", 1}}).at("size_bytes"), 1024);
    expectError([&] { download({{"path", "/g"}, {"max_bytes", "10"}}); }, 413,
                "File is too large: 1025 bytes, limit 1024 bytes.");

    std::ofstream(root.locate("/huge"));
    std::filesystem::resize_file(root.locate("/huge"), 26'214'401);
    expectError([&] { download({{"path", "/huge"}, {"max_bytes", 99'999'999'999}}); }, 413,
                "File is too large: 26214401 bytes, limit 26214400 bytes.");
    expectError([&] { download({{"path", "/huge"}}); }, 413,
                "File is too large: 26214401 bytes, limit 10485760 bytes.");
}

TEST_F(FileCommandsTest, anEmptyDownloadPathIsRefused) {
    for (const Json& payload :
         {Json::object(), Json{{"path", " \n"}}, Json{{"path", 7}}, Json{{"path", nullptr}}}) {
        expectError([&] { download(payload); }, 400, "Path cannot be empty.");
    }
}

TEST_F(FileCommandsTest, whatIsNoRegularFileIsAnErrorAndNoHang) {
    makeFolder("/d");
    ASSERT_EQ(mkfifo(root.locate("/fifo").c_str(), 0600), 0);
    for (const char* path : {"/missing", "/d", "/fifo"}) {
        EXPECT_THROW(download({{"path", path}}), FileError) << path;
    }
    FileCommands onTheRealSystem{{workers, clock, SystemRoot()}};
    EXPECT_THROW(loop.run(onTheRealSystem.downloadFile({{"path", "/dev/zero"}})), FileError);
}

TEST_F(FileCommandsTest, errorsNameTheMacsPath) {
    EXPECT_EQ(errorOf<FileError>([&] { download({{"path", "/missing"}}); }),
              "No such file or directory: /missing");
    put("/file");
    EXPECT_EQ(
        errorOf<FileError>([&] { upload({{"target_path", "/file/x"}, {"content_base64", ""}}); }),
        "Not a directory: /file");
}

TEST_F(FileCommandsTest, filesThatSayNothingOfTheirSizeAreReadToTheirEnd) {
    FileCommands onTheRealSystem{{workers, clock, SystemRoot()}};
    const auto result = loop.run(onTheRealSystem.downloadFile({{"path", "/proc/self/status"}}));
    const Json json = Json::parse(std::get<SerializedJson>(result).text);
    EXPECT_GT(json.at("size_bytes"), 0);
    EXPECT_EQ(json.at("content_base64").get<std::string>().size(),
              base64EncodedSize(json.at("size_bytes").get<std::size_t>()));
}

TEST_F(FileCommandsTest, aFileThatIsLargerThanItSaidIsRefusedAllTheSame) {
    FileCommands onTheRealSystem{{workers, clock, SystemRoot()}};
    const Json payload{{"path", "/proc/self/smaps"}, {"max_bytes", 1024}};
    try {
        loop.run(onTheRealSystem.downloadFile(payload));
        FAIL() << "It was sent.";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.code(), 413);
        EXPECT_THAT(error.what(), testing::EndsWith("bytes, limit 1024 bytes."));
    }
}

TEST_F(FileCommandsTest, uploadsAFileIntoFoldersThatItMakes) {
    EXPECT_EQ(upload({{"target_path", " /a/b/c.txt "}, {"content_base64", encoded("hello")}}),
              (Json{{"target_path", "/a/b/c.txt"},
                    {"size_bytes", 5},
                    {"written_at", "2026-03-01T09:15:02Z"}}));
    EXPECT_EQ(content("/a/b/c.txt"), "hello");
    EXPECT_EQ(upload({{"target_path", "/empty"}, {"content_base64", ""}}).at("size_bytes"), 0);
    EXPECT_EQ(content("/empty"), "");
}

TEST_F(FileCommandsTest, refusesUploadsWithoutTargetOrStrictContent) {
    const std::string text = "Target path and content are required.";
    for (const Json& payload :
         {Json{{"content_base64", "Zg=="}}, Json{{"target_path", " "}, {"content_base64", "Zg=="}},
          Json{{"target_path", "/x"}}, Json{{"target_path", "/x"}, {"content_base64", 5}},
          Json{{"target_path", "/x"}, {"content_base64", nullptr}},
          Json{{"target_path", 5}, {"content_base64", "Zg=="}},
          Json{{"target_path", "/x"}, {"content_base64", "Zm9v\nZm9v"}},
          Json{{"target_path", "/x"}, {"content_base64", "_-8="}},
          Json{{"target_path", "/x"}, {"content_base64", "Zg"}},
          Json{{"target_path", "/x"}, {"content_base64", "Zh=="}}}) {
        expectError([&] { upload(payload); }, 400, text);
    }
    EXPECT_THAT(namesIn(root.locate("/")), IsEmpty());
}

TEST_F(FileCommandsTest, anExistingFileIsReplacedOnlyWhenAsked) {
    put("/f", "old");
    Json payload{{"target_path", "/f"}, {"content_base64", encoded("new")}};
    for (const Json& no : {Json(nullptr), Json(false), Json("no"), Json(1)}) {
        payload["overwrite"] = no;
        expectError([&] { upload(payload); }, 409, "File already exists: /f");
    }
    EXPECT_EQ(content("/f"), "old");

    ASSERT_EQ(chmod(root.locate("/f").c_str(), 0640), 0);
    std::ifstream reader(root.locate("/f"));
    payload["overwrite"] = "YES";
    upload(payload);
    EXPECT_EQ(content("/f"), "new");
    std::string seenByReader;
    reader >> seenByReader;
    EXPECT_EQ(seenByReader, "old") << "who reads the old file keeps it";
    struct stat status{};
    ASSERT_EQ(stat(root.locate("/f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u) << "a replaced file hands its mode on";
}

TEST_F(FileCommandsTest, withoutLeaveNoFolderIsMade) {
    EXPECT_THROW(
        upload(
            {{"target_path", "/no/f"}, {"content_base64", "Zg=="}, {"create_directories", false}}),
        FileError);
    EXPECT_FALSE(fileExists(root.locate("/no")));
}

TEST_F(FileCommandsTest, aFailedUploadLeavesNothingBehind) {
    makeFolder("/d/f");
    EXPECT_THROW(upload({{"target_path", "/d/f"}, {"content_base64", "Zg=="}, {"overwrite", true}}),
                 FileError);
    expectError([&] { upload({{"target_path", "/d/f"}, {"content_base64", "Zg=="}}); }, 409,
                "File already exists: /d/f");
    EXPECT_THAT(namesIn(root.locate("/d")), ElementsAre("f"));

    put("/file");
    EXPECT_THROW(upload({{"target_path", "/file/x"}, {"content_base64", "Zg=="}}), FileError);
    EXPECT_EQ(content("/file"), "x");
}

}  // namespace
}  // namespace orv

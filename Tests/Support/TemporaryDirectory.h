#pragma once

#include <filesystem>
#include <stdlib.h>
#include <string>
#include <system_error>

namespace orv {

/// A private, empty folder that goes, with all that is in it, when the test ends.
class TemporaryDirectory {
public:
    TemporaryDirectory() : folder(std::filesystem::temp_directory_path() / "orv-test-XXXXXX") {
        if (::mkdtemp(folder.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), folder);
        }
    }

    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return folder; }

    /// The place of something inside: "name" or "folder/name".
    std::string path(const std::string& name) const { return folder + "/" + name; }

private:
    std::string folder;
};

}  // namespace orv

#pragma once

#include <dirent.h>
#include <memory>
#include <string>

namespace orv {

/// A folder read entry by entry. Every operation throws FileError, showing the path given here.
class DirectoryStream {
public:
    /// Takes over what opendir() or fdopendir() returned, with errno as it left it.
    DirectoryStream(DIR* opened, const std::string& shownPath);

    /// The next entry but "." and "..", in the system's order and valid until the next call; null
    /// at the end.
    const dirent* next();

    int descriptor() const { return dirfd(stream.get()); }

private:
    struct Close {
        void operator()(DIR* directory) const { closedir(directory); }
    };

    std::unique_ptr<DIR, Close> stream;
    std::string path;
};

}  // namespace orv

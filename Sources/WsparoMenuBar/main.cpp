// The program of the application bundle that updates check and the menu-bar job starts. It shows
// nothing itself: it becomes the companion beside it, watching for messages.
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "OrvViewerShared/BuildConfig.h"

namespace {

constexpr const char* companion = "/Applications/Wsparo Brenvox.app/Contents/MacOS/wsparo";

}  // namespace

int main(int argumentCount, char** arguments) {
    for (int index = 1; index < argumentCount; ++index) {
        if (std::strcmp(arguments[index], "--version") == 0) {
            std::puts(orv::buildConfig::version);
            return 0;
        }
    }
    // It keeps our name, by which the updater finds and stops the application's processes.
    char watch[][6] = {"chat", "watch"};
    char* watching[] = {arguments[0], watch[0], watch[1], nullptr};
    ::execv(companion, watching);
    std::perror(companion);
    return 1;
}

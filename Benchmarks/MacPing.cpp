// Linux's ping under the Mac's command line, whose -W counts in milliseconds. It stands in for the
// Mac's own where processes are counted and timed, so it does nothing else.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

int main(int count, char** arguments) {
    char seconds[32];
    for (int i = 1; i + 1 < count; ++i) {
        if (std::strcmp(arguments[i], "-W") != 0) continue;
        std::snprintf(seconds, sizeof seconds, "%.3f", std::atof(arguments[i + 1]) / 1000);
        arguments[i + 1] = seconds;
    }
    execv("/bin/ping", arguments);
    std::perror("/bin/ping");
    return 127;
}

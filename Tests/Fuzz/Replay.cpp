// Runs every target over its corpus, and over the corpus damaged in a fixed number of ways:
//
//     FuzzReplay                       everything
//     FuzzReplay TARGET FILE [NUMBER]  one file, whole or damaged as NUMBER says
//
// What was running when a sanitizer or a target ended the program is named last.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "Fuzz/Damage.h"
#include "Fuzz/Targets.h"

#ifdef ORV_SANITIZED
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t damagesPerFile = 400;

std::string running;

void nameWhatIsRunning() {
    const std::string line = "FuzzReplay ended in: FuzzReplay " + running + "\n";
    (void)!write(STDERR_FILENO, line.data(), line.size());
}

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::fprintf(stderr, "%s cannot be read\n", file.c_str());
        std::exit(2);
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<fs::path> filesOf(std::string_view target) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(fs::path(ORV_FUZZ_CORPUS) / target))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

/// Number 0 is the text as it is; the others take pieces of themselves.
void run(const orv::fuzz::NamedTarget& target, const fs::path& file, const std::string& text,
         std::uint32_t number) {
    running = std::string(target.name) + " " + file.string() + " " + std::to_string(number);
    target.run(number == 0 ? text : orv::fuzz::Damage(number).apply(text, text));
}

/// Of all inputs, one in `shares`, from `share` on.
void runShare(std::uint32_t share, std::uint32_t shares) {
    for (const orv::fuzz::NamedTarget& target : orv::fuzz::targets) {
        std::size_t runs = 0;
        for (const fs::path& file : filesOf(target.name)) {
            const std::string text = contentOf(file);
            for (std::uint32_t number = share; number <= damagesPerFile; number += shares, ++runs)
                run(target, file, text, number);
        }
        std::printf("%s: %zu inputs did no harm\n", std::string(target.name).c_str(), runs);
    }
}

/// Each core has a process of its own. False when one of them ended otherwise than well.
bool runAll() {
    const std::uint32_t shares = std::max(1U, std::thread::hardware_concurrency());
    std::vector<pid_t> children;
    for (std::uint32_t share = 0; share < shares; ++share) {
        const pid_t child = fork();
        if (child == 0) {
            runShare(share, shares);
            std::exit(EXIT_SUCCESS);
        }
        children.push_back(child);
    }
    bool well = true;
    for (const pid_t child : children) {
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child || status != 0) well = false;
    }
    return well;
}

int runOne(std::string_view name, const fs::path& file, std::uint32_t number) {
    for (const orv::fuzz::NamedTarget& target : orv::fuzz::targets) {
        if (target.name != name) continue;
        run(target, file, contentOf(file), number);
        return EXIT_SUCCESS;
    }
    std::fputs("There is no such target.\n", stderr);
    return EXIT_FAILURE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
#ifdef ORV_SANITIZED
    __sanitizer_set_death_callback(nameWhatIsRunning);
#endif
    signal(SIGABRT, [](int) { nameWhatIsRunning(); });
    if (argumentCount >= 3) {
        return runOne(arguments[1], arguments[2],
                      argumentCount > 3 ? static_cast<std::uint32_t>(std::atoi(arguments[3])) : 0);
    }
    return runAll() ? EXIT_SUCCESS : EXIT_FAILURE;
}

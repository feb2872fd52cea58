#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "Support/AgentFixture.h"
#include "Support/FileFacts.h"

namespace orv {

/// The runtime folder of an agent, for tests to plant things in.
class UpdateFixture : public AgentFixture {
protected:
    std::string place(const char* path) const { return root.locate(path); }

    void write(const char* path, const std::string& content) {
        std::filesystem::create_directories(parentPath(place(path)));
        std::ofstream(place(path)) << content;
    }

    std::string content(const char* path) const { return readFile(place(path), 1 << 20); }

    void writeStatus(const std::string& phase, std::chrono::seconds age) {
        coordinator.writeStatus({phase, "Wiadomość", "0.2.50", "0.3.0", clock.now() - age, "/log"});
    }

    ViewerUpdateCoordinator coordinator{{root, clock, logger}};
};

}  // namespace orv

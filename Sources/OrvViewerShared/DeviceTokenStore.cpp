#include "OrvViewerShared/DeviceTokenStore.h"

#include <utility>

#include "OrvPlatform/Text.h"

namespace orv {

DeviceTokenStore::DeviceTokenStore(StateLoader loader, StateSaver saver)
    : stateLoader(std::move(loader)), stateSaver(std::move(saver)) {
}

DeviceTokenStore::DeviceTokenStore(const ViewerStateFile& file)
    : DeviceTokenStore([&file] { return file.load(); },
                       [&file](const ViewerState& state) { file.save(state); }) {
}

std::optional<std::string> DeviceTokenStore::load() const {
    const ViewerState state = stateLoader();
    std::string token = trimmed(state.deviceToken.value_or(""));
    if (token.empty()) return std::nullopt;
    return token;
}

void DeviceTokenStore::save(const std::string& token) {
    std::string trimmedToken = trimmed(token);
    if (trimmedToken.empty()) return;
    ViewerState state = stateLoader();
    state.deviceToken = std::move(trimmedToken);
    stateSaver(state);
}

void DeviceTokenStore::clear() {
    ViewerState state = stateLoader();
    state.deviceToken.reset();
    stateSaver(state);
}

}  // namespace orv

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "OrvViewerShared/ViewerState.h"

namespace orv {

/// The device's own credential, as the API client sees it.
class DeviceTokenStoring {
public:
    virtual ~DeviceTokenStoring() = default;
    virtual std::optional<std::string> load() const = 0;
    virtual void save(const std::string& token) = 0;
    virtual void clear() = 0;
};

/// Keeps the token inside the state file and nowhere else: every use reads the file afresh.
class DeviceTokenStore final : public DeviceTokenStoring {
public:
    using StateLoader = std::function<ViewerState()>;
    using StateSaver = std::function<void(const ViewerState&)>;

    DeviceTokenStore(StateLoader loader, StateSaver saver);
    explicit DeviceTokenStore(const ViewerStateFile& file);

    /// Trimmed; nothing when there is none or only white space.
    std::optional<std::string> load() const override;

    /// A blank token leaves the stored one as it is.
    void save(const std::string& token) override;

    void clear() override;

private:
    StateLoader stateLoader;
    StateSaver stateSaver;
};

}  // namespace orv

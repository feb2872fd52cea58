#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace orv {

/// The agent's own failures. what() is the short description that goes into the English log.
class ViewerError : public std::runtime_error {
public:
    enum class Kind { configuration, http, invalidResponse, temporarilyUnavailable, unsupported };

    /// Settings that cannot work.
    static ViewerError configuration(const std::string& message);
    /// An answer with a status that is neither success nor worth a retry, with its body.
    static ViewerError http(int status, const std::string& body);
    /// An answer that is not HTTP or not the expected JSON.
    static ViewerError invalidResponse(const std::string& message);
    /// The server or the network did not recover within the retry.
    static ViewerError temporarilyUnavailable(const std::string& message);
    /// Something the agent cannot do; the message reaches people as it stands.
    static ViewerError unsupported(const std::string& message);

    Kind kind() const { return errorKind; }
    /// Only for http.
    int status() const { return httpStatus; }
    /// Only for http.
    const std::string& body() const { return text; }
    /// For every other kind.
    const std::string& message() const { return text; }

    bool operator==(const ViewerError& other) const {
        return errorKind == other.errorKind && httpStatus == other.httpStatus && text == other.text;
    }

private:
    ViewerError(Kind kind, int status, std::string text, const std::string& description);

    Kind errorKind;
    int httpStatus;
    std::string text;
};

/// One whole Polish sentence for the person at the Mac: what could not be done (an infinitive
/// phrase such as "sprawdzić aktualizację") and why.
std::string viewerErrorMessage(const std::exception& error, std::string_view action);

/// The server's own explanation: the "detail" text of a JSON error body, trimmed.
std::optional<std::string> serverErrorDetail(std::string_view body);

}  // namespace orv

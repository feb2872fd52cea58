#pragma once

#include <stdexcept>
#include <string>

namespace orv {

/// What a command fails with. what() is the description, the error text that the helpdesk gets.
class CommandError : public std::runtime_error {
public:
    /// The domain names the handler ("OrvViewerShell"); the code is in the manner of HTTP: 400,
    /// 404, 409 or 413.
    CommandError(std::string domain, int code, const std::string& description);

    const std::string& domain() const { return errorDomain; }
    int code() const { return errorCode; }

private:
    std::string errorDomain;
    int errorCode;
};

/// Of the commands that read, write and list files.
CommandError fileTransferError(int code, const std::string& description);

}  // namespace orv

#include "OrvPlatform/Cancellation.h"

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

namespace orv {

bool isCancellation(const std::exception& error) {
    const auto* systemError = dynamic_cast<const boost::system::system_error*>(&error);
    return systemError != nullptr && systemError->code() == boost::asio::error::operation_aborted;
}

void throwCancellation() {
    throw boost::system::system_error(boost::asio::error::operation_aborted);
}

}  // namespace orv

#pragma once

#include <boost/system/error_code.hpp>

#include "OrvPlatform/UrlError.h"

using SSL = struct ssl_st;

namespace orv {

/// What Asio's, OpenSSL's and Beast's codes mean, by the phase in which they came.

UrlError connectError(const boost::system::error_code& error);

UrlError tlsHandshakeError(const boost::system::error_code& error, const SSL* connection);

/// The status is the answer's, when there was one.
UrlError webSocketUpgradeError(const boost::system::error_code& error, int status);

/// On an open connection.
UrlError webSocketTransferError(const boost::system::error_code& error);

}  // namespace orv

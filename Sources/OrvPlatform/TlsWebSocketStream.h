#pragma once

#include <boost/beast/websocket/stream.hpp>

#include "OrvPlatform/TlsStream.h"

namespace orv {

class TlsWebSocketStream : public boost::beast::websocket::stream<TlsStream, true> {
public:
    using boost::beast::websocket::stream<TlsStream, true>::stream;
};

}  // namespace orv

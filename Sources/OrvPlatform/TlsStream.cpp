#include "OrvPlatform/TlsStream.h"

namespace orv {

using Base = asio::ssl::stream<asio::ip::tcp::socket>;

void TlsStream::startReading(asio::mutable_buffer buffer, TransferHandler handler) {
    Base::async_read_some(buffer, std::move(handler));
}

void TlsStream::startWriting(std::vector<asio::const_buffer> buffers, TransferHandler handler) {
    Base::async_write_some(buffers, std::move(handler));
}

}  // namespace orv

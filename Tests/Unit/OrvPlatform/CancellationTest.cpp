#include <cerrno>
#include <system_error>

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>
#include <gtest/gtest.h>

#include "OrvPlatform/Cancellation.h"

namespace orv {
namespace {

TEST(CancellationTest, knowsItsOwnError) {
    try {
        throwCancellation();
    } catch (const std::exception& error) {
        EXPECT_TRUE(isCancellation(error));
    }
}

TEST(CancellationTest, everyOtherErrorIsAFailure) {
    EXPECT_FALSE(isCancellation(std::runtime_error("Operation canceled")));
    EXPECT_FALSE(isCancellation(boost::system::system_error(boost::asio::error::eof)));
    EXPECT_FALSE(isCancellation(std::system_error(EIO, std::generic_category())));
}

}  // namespace
}  // namespace orv

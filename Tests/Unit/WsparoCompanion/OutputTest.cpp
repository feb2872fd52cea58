#include <array>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "OrvPlatform/FileDescriptor.h"
#include "WsparoCompanion/Output.h"

namespace orv::companion {
namespace {

class OutputTest : public testing::Test {
protected:
    OutputTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe(ends.data()), 0);
        reading = FileDescriptor(ends[0]);
        writing = FileDescriptor(ends[1]);
        previous = ::signal(SIGPIPE, SIG_IGN);
    }
    ~OutputTest() override { ::signal(SIGPIPE, previous); }

    std::string read() const {
        std::array<char, 200> buffer{};
        const ssize_t length = ::read(reading.get(), buffer.data(), buffer.size());
        return {buffer.data(), static_cast<std::size_t>(length)};
    }

    FileDescriptor reading;
    FileDescriptor writing;
    void (*previous)(int) = SIG_DFL;
};

TEST_F(OutputTest, coloursOnlyWhereThereAreSome) {
    EXPECT_EQ(Output(1, true, Output::Loss::isError).in(Colour::red, "źle"), "\033[31mźle\033[0m");
    EXPECT_EQ(Output(1, true, Output::Loss::isError).in(Colour::plain, "x"), "x");
    EXPECT_EQ(Output(1, false, Output::Loss::isError).in(Colour::red, "źle"), "źle");
}

TEST_F(OutputTest, showsProgressOnTerminalsOnly) {
    Output out(writing.get(), false, Output::Loss::isError);
    out.progress("10 %");
    out.line("gotowe");
    EXPECT_EQ(read(), "gotowe\n");
}

TEST_F(OutputTest, noticesThatItsReaderHasLeft) {
    reading.reset();
    Output out(writing.get(), false, Output::Loss::isError);
    EXPECT_THROW(out.line("x"), OutputClosed);
    Output careless(writing.get(), false, Output::Loss::isIgnored);
    EXPECT_NO_THROW(careless.line("x"));
}

}  // namespace
}  // namespace orv::companion

#include "platform/runtime/OutputPump.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <future>
#include <string>

#include "tests/support/TempDir.h"

namespace runtime {
namespace {

/// A descriptor that leads into a pipe, in place of standard output.
class OutputPumpTest : public testing::Test
{
protected:
    OutputPumpTest()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reader_ = std::make_unique<host::Descriptor>(ends[0]);
        output_ = std::make_unique<host::Descriptor>(ends[1]);
    }

    bool put(const std::string& text) const
    {
        return write(output_->get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    /// @returns what has been passed on, once all writers are gone.
    std::string readAll() const
    {
        std::string all;
        std::array<char, 4096> chunk;
        for (ssize_t count = 0; (count = read(reader_->get(), chunk.data(), chunk.size())) > 0;) {
            all.append(chunk.data(), static_cast<std::size_t>(count));
        }
        return all;
    }

    std::unique_ptr<host::Descriptor> reader_;
    std::unique_ptr<host::Descriptor> output_;
};

TEST_F(OutputPumpTest, CopiesEverythingBeforeItStops)
{
    auto read = std::async(std::launch::async, [this] { return readAll(); });
    {
        OutputPump pump(output_->get());
        EXPECT_TRUE(put("a\n"));
        EXPECT_TRUE(put(std::string(500'000, 'b')));
        pump.stop();
    }
    EXPECT_TRUE(put("c\n"));
    output_.reset();

    EXPECT_EQ(read.get(), "a\n" + std::string(500'000, 'b') + "c\n");
}

TEST_F(OutputPumpTest, UnreadOutputIsRefusedWithoutBlockingTheWriter)
{
    const std::string line(1023, 'x');
    auto pump = std::make_unique<OutputPump>(output_->get());
    std::size_t taken = 0;
    while (put(line + "\n")) {
        ++taken;
    }
    EXPECT_EQ(errno, EAGAIN);

    auto read = std::async(std::launch::async, [this] { return readAll(); });
    pump.reset();
    output_.reset();

    EXPECT_EQ(read.get().size(), taken * 1024);
}

TEST_F(OutputPumpTest, ClosedReaderBlocksNoWriter)
{
    std::signal(SIGPIPE, SIG_IGN);
    OutputPump pump(output_->get());
    reader_.reset();

    EXPECT_TRUE(put("a\n"));

    pump.stop();
}

TEST_F(OutputPumpTest, RegularFileStaysUnchanged)
{
    const tests::TempDir directory;
    const host::Descriptor file(open((directory.path() / "file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));

    const OutputPump pump(file.get());

    struct stat status = {};
    ASSERT_EQ(fstat(file.get(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
}

}  // namespace
}  // namespace runtime

// A descriptor has one owner, pipes are closed on exec, and reads and writes go on over
// interruptions, short transfers and a full pipe. Method: real pipes behind misbehaving calls.
#include "hosts/embedded/pool/descriptor.hpp"

#include <array>
#include <string>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

class Descriptors : public ProcessTest {};

bool is_open(int number) {
  return ::fcntl(number, F_GETFD) >= 0;
}

TEST_F(Descriptors, AreClosedByTheirOwnerOnly) {
  const int number = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  {
    Descriptor first(number);
    Descriptor second(std::move(first));
    EXPECT_EQ(second.number(), number);
    first = Descriptor();
    EXPECT_TRUE(is_open(number));
    first = std::move(second);
    EXPECT_TRUE(first.is_open());
    EXPECT_TRUE(is_open(number));
  }
  EXPECT_FALSE(is_open(number));
}

TEST_F(Descriptors, AreClosedWhenReplaced) {
  const int number = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  Descriptor descriptor(number);
  descriptor = Descriptor(::dup(number));
  EXPECT_FALSE(is_open(number));
  EXPECT_TRUE(descriptor.is_open());
}

TEST_F(Descriptors, StayOpenWhenReleased) {
  Descriptor descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int number = descriptor.release();
  EXPECT_FALSE(descriptor.is_open());
  descriptor.close();
  EXPECT_TRUE(is_open(number));
  ::close(number);
}

TEST_F(Descriptors, KeepErrnoWhenClosed) {
  Descriptor descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  errno = ENOSPC;
  descriptor.close();
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Descriptors, OfAPipeAreClosedOnExecAndDoNotBlockTheReader) {
  RealSystemCalls system;
  Pipe pipe;
  ASSERT_EQ(open_pipe(system, pipe), 0);
  EXPECT_EQ(::fcntl(pipe.read_end.number(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(::fcntl(pipe.write_end.number(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(::fcntl(pipe.write_end.number(), F_GETFL) & O_NONBLOCK, 0);
  std::array<char, 8> buffer{};
  EXPECT_EQ(read_some(system, pipe.read_end.number(), buffer.data(), buffer.size()).error, EAGAIN);
}

TEST_F(Descriptors, OfAPipeAreNoStandardStreams) {
  const int status = run_forked([] {
    ::close(STDIN_FILENO);
    ::close(STDOUT_FILENO);
    RealSystemCalls system;
    Pipe pipe;
    ASSERT_EQ(open_pipe(system, pipe), 0);
    EXPECT_GT(pipe.read_end.number(), STDERR_FILENO);
    EXPECT_GT(pipe.write_end.number(), STDERR_FILENO);
    EXPECT_FALSE(is_open(STDIN_FILENO));
    EXPECT_FALSE(is_open(STDOUT_FILENO));
    EXPECT_EQ(::fcntl(pipe.read_end.number(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Descriptors, OfAPipeThatCannotBeOpenedAreNotLeft) {
  for (const auto call : {FailingCalls::Call::Pipe, FailingCalls::Call::Fcntl}) {
    FailingCalls system(call, EMFILE, 1);
    Pipe pipe;
    EXPECT_EQ(open_pipe(system, pipe), EMFILE);
    EXPECT_FALSE(pipe.read_end.is_open());
    EXPECT_FALSE(pipe.write_end.is_open());
  }
}

void expect_passes_through(SystemCalls& system) {
  Pipe pipe;
  ASSERT_EQ(open_pipe(system, pipe), 0);
  const std::string sent = "some bytes that go through a pipe in pieces";
  ASSERT_EQ(write_all(system, pipe.write_end.number(), sent), 0);
  pipe.write_end.close();
  std::string got;
  std::array<char, 16> buffer{};
  while (true) {
    const ReadResult result =
        read_some(system, pipe.read_end.number(), buffer.data(), buffer.size());
    ASSERT_EQ(result.error, 0);
    if (result.bytes == 0) break;
    got.append(buffer.data(), result.bytes);
  }
  EXPECT_EQ(got, sent);
}

TEST_F(Descriptors, AreReadAndWrittenOverInterruptions) {
  InterruptingCalls system;
  expect_passes_through(system);
  EXPECT_GE(system.interruptions, 6);
}

TEST_F(Descriptors, AreReadAndWrittenInSmallPieces) {
  ShortCalls system(3);
  expect_passes_through(system);
}

TEST_F(Descriptors, TellWhyTheyCannotBeWritten) {
  RealSystemCalls system;
  Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(full.is_open());
  EXPECT_EQ(write_all(system, full.number(), "x"), ENOSPC);
  EXPECT_EQ(write_all(system, -1, "x"), EBADF);
}

TEST_F(Descriptors, TellWhyTheyCannotBeRead) {
  RealSystemCalls system;
  std::array<char, 8> buffer{};
  EXPECT_EQ(read_some(system, -1, buffer.data(), buffer.size()).error, EBADF);
}

}  // namespace
}  // namespace varnholt::embedded::test

// Goal: what is written arrives whole or is known to be lost, and an interrupt ends every wait.
// Method: real pipes and devices; a timer's signal comes while a pipe is full.
#include "apps/genetic_search/output.hpp"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include "apps/genetic_search/signals.hpp"
#include "apps/genetic_search/terminal.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::HasSubstr;

class Pipe {
 public:
  Pipe() {
    if (pipe2(ends_.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    close_reader();
    close(ends_[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  [[nodiscard]] int writer() const { return ends_[1]; }
  void close_reader() {
    if (ends_[0] != -1) close(ends_[0]);
    ends_[0] = -1;
  }
  [[nodiscard]] std::string read_some() const {
    std::array<char, 4096> buffer = {};
    const ssize_t size = read(ends_[0], buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(size > 0 ? size : 0)};
  }

 private:
  std::array<int, 2> ends_ = {-1, -1};
};

TEST(Output, ArrivesWhole) {
  const Pipe pipe;
  embedded::InterruptFlag interrupt;
  Output output(pipe.writer(), "the pipe", interrupt, Output::Failure::EndsRun);
  const std::string text(10'000, 'x');
  output.write(text);
  std::string read;
  while (read.size() < text.size())
    read += pipe.read_some();
  EXPECT_EQ(read, text);
  EXPECT_FALSE(output.has_failed());
  EXPECT_NO_THROW(output.throw_if_failed());
  EXPECT_EQ(interrupt.requests, 0);
}

TEST(Output, NoticesThatTheReaderIsGoneAndAsksForTheEnd) {
  const SignalGuard signals;  // Without it the signal would end this test.
  Pipe pipe;
  pipe.close_reader();
  Output output(pipe.writer(), "the pipe", signals.flag(), Output::Failure::EndsRun);
  output.write("text");
  EXPECT_TRUE(output.has_failed());
  EXPECT_EQ(signals.flag().requests, 1);
  EXPECT_THROW(output.throw_if_failed(), ReaderGone);
  output.write("more");
  EXPECT_EQ(signals.flag().requests, 1);
}

TEST(Output, LetsTheRunGoOnWhereAFailureIsBorne) {
  const SignalGuard signals;
  Pipe pipe;
  pipe.close_reader();
  Output output(pipe.writer(), "the pipe", signals.flag(), Output::Failure::IsBorne);
  output.write("text");
  EXPECT_TRUE(output.has_failed());
  EXPECT_EQ(signals.flag().requests, 0);
}

TEST(Output, TellsAFullDevice) {
  const int descriptor = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  embedded::InterruptFlag interrupt;
  Output output(descriptor, "standard output", interrupt, Output::Failure::EndsRun);
  output.write("text");
  close(descriptor);
  try {
    output.throw_if_failed();
    FAIL() << "nothing thrown";
  } catch (const ReaderGone&) {
    FAIL() << "a full device is not a reader that is gone";
  } catch (const OutputError& error) {
    EXPECT_THAT(error.what(),
                HasSubstr("cannot write to standard output: No space left on device; free"));
  }
  EXPECT_EQ(interrupt.requests, 1);
}

TEST(Output, EndsAWaitAtTheSecondInterrupt) {
  const SignalGuard signals;
  const Pipe pipe;
  // Nobody reads: the pipe fills up, and the write waits until both signals have come.
  const itimerval every_20_ms = {{0, 20'000}, {0, 20'000}};
  struct sigaction interrupting = {};
  struct sigaction before = {};
  interrupting.sa_handler = [](int) { raise(SIGINT); };
  ASSERT_EQ(sigaction(SIGALRM, &interrupting, &before), 0);
  ASSERT_EQ(setitimer(ITIMER_REAL, &every_20_ms, nullptr), 0);
  Output output(pipe.writer(), "the pipe", signals.flag(), Output::Failure::EndsRun);
  EXPECT_THROW(output.write(std::string(1'000'000, 'x')), embedded::InterruptedAtOnce);
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_GE(signals.flag().requests, 2);
}

TEST(Output, StillWritesAfterTheSecondInterruptWhereNothingHoldsItUp) {
  const Pipe pipe;
  embedded::InterruptFlag interrupt;
  interrupt.requests = 2;
  Output output(pipe.writer(), "the pipe", interrupt, Output::Failure::EndsRun);
  output.write("ended at once\n");
  EXPECT_EQ(pipe.read_some(), "ended at once\n");
}

TEST(Signals, AreCountedAndGivenBack) {
  {
    const SignalGuard signals;
    EXPECT_EQ(signals.flag().requests, 0);
    raise(SIGINT);
    raise(SIGTERM);
    EXPECT_EQ(signals.flag().requests, 2);
    for (int i = 0; i < 200; ++i)
      raise(SIGINT);
    EXPECT_EQ(signals.flag().requests, 100);
  }
  struct sigaction now = {};
  sigaction(SIGINT, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_DFL);
  const SignalGuard again;
  EXPECT_EQ(again.flag().requests, 0);
}

TEST(Signals, DoNotRestartWhatTheyInterrupt) {
  const SignalGuard signals;
  struct sigaction now = {};
  sigaction(SIGINT, nullptr, &now);
  EXPECT_EQ(now.sa_flags & SA_RESTART, 0);
  sigaction(SIGPIPE, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_IGN);
}

TEST(Terminal, LeavesNoStandardDescriptorToTheNextFileThatIsOpened) {
  const int saved = dup(STDOUT_FILENO);
  ASSERT_GT(saved, STDERR_FILENO);
  close(STDOUT_FILENO);
  fill_standard_descriptors();
  const int flags = fcntl(STDOUT_FILENO, F_GETFL);
  const ssize_t written = write(STDOUT_FILENO, "x", 1);
  const int error = errno;
  dup2(saved, STDOUT_FILENO);
  close(saved);
  EXPECT_NE(flags, -1);
  EXPECT_EQ(written, -1);  // It is still no place to write to.
  EXPECT_EQ(error, EBADF);
}

TEST(Terminal, HasAWidthWhereThereIsNone) {
  const Pipe pipe;
  EXPECT_FALSE(is_live_terminal(pipe.writer()));
  EXPECT_EQ(terminal_width(pipe.writer()), kUsualWidth);
}

}  // namespace
}  // namespace varnholt::app::test

// Reading a file: all of it, once, and every trouble told apart.
// Method: files of the test's own, a pipe in two pieces, a folder, and what the kernel shows as
// files without a size or without anything to read.
#include "hosts/embedded/system/read_file.hpp"

#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace varnholt::embedded::test {
namespace {

class ReadFileTest : public ::testing::Test {
 protected:
  ReadFileTest() { std::filesystem::create_directories(folder_); }
  ~ReadFileTest() override { std::filesystem::remove_all(folder_); }

  [[nodiscard]] std::filesystem::path file_with(const std::string& bytes) const {
    const std::filesystem::path path = folder_ / "file";
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("varnholt-read-" + std::to_string(getpid()));
};

std::string many_bytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>(i * 7 % 251);
  return bytes;
}

TEST_F(ReadFileTest, EveryByteOfAFile) {
  for (const std::size_t size : {0U, 1U, 65536U, 65537U, 1000000U}) {
    const std::string bytes = many_bytes(size);
    const FileBytes file = read_file(file_with(bytes));
    EXPECT_EQ(file.trouble, ReadTrouble::None);
    EXPECT_TRUE(file.bytes == bytes) << size;
  }
}

TEST_F(ReadFileTest, WhatHasNoSizeIsReadToItsEndToo) {
  const FileBytes status = read_file("/proc/self/status");
  EXPECT_EQ(status.trouble, ReadTrouble::None);
  EXPECT_NE(status.bytes.find("Pid:"), std::string::npos);

  const std::filesystem::path pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string bytes = many_bytes(200000);
  const pid_t writer = fork();
  if (writer == 0) {
    std::ofstream out(pipe, std::ios::binary);
    out << bytes.substr(0, 70001) << std::flush;
    out << bytes.substr(70001) << std::flush;
    _exit(0);
  }
  const FileBytes file = read_file(pipe);
  EXPECT_TRUE(file.bytes == bytes);
  EXPECT_EQ(waitpid(writer, nullptr, 0), writer);
}

TEST_F(ReadFileTest, AFileMayBeAsLargeAsTheLimitAndNoLarger) {
  const std::filesystem::path path = file_with(many_bytes(1000));
  EXPECT_EQ(read_file(path, 1000).trouble, ReadTrouble::None);
  EXPECT_EQ(read_file(path, 1000).bytes.size(), 1000U);
  const FileBytes refused = read_file(path, 999);
  EXPECT_EQ(refused.trouble, ReadTrouble::IsTooLarge);
  EXPECT_EQ(refused.bytes, "") << "the size says enough";
}

TEST_F(ReadFileTest, APipeIsReadUpToTheLimit) {
  const std::filesystem::path pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const pid_t writer = fork();
  if (writer == 0) {
    std::ofstream(pipe, std::ios::binary) << many_bytes(1000);
    _exit(0);
  }
  EXPECT_EQ(read_file(pipe, 999).trouble, ReadTrouble::IsTooLarge);
  EXPECT_EQ(waitpid(writer, nullptr, 0), writer);
}

TEST_F(ReadFileTest, NothingIsWaitedForThatHasNoEnd) {
  EXPECT_EQ(read_file("/dev/zero").trouble_text(), "is a device, not a file");
  const std::filesystem::path pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(read_file(pipe, 100, std::chrono::milliseconds(10)).trouble_text(),
            "is a pipe that nobody writes to");
}

// Two kinds of waiting: for a writer, and for what the writer has to say.
TEST_F(ReadFileTest, AWaitEndsWhenItsCheckThrows) {
  struct Interrupted {};
  const std::filesystem::path pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  int calls = 0;
  const auto leave_later = [&calls] {
    if (++calls == 3) throw Interrupted();
  };
  const auto read = [&] {
    static_cast<void>(read_file(pipe, 1000, std::chrono::hours(1), leave_later));
  };
  EXPECT_THROW(read(), Interrupted);
  const int writer = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(write(writer, "date", 4), 4);
  calls = 0;
  EXPECT_THROW(read(), Interrupted);
  close(writer);
  // A file that is all there is read in pieces, with a look between them.
  const std::filesystem::path large = folder_ / "large";
  ASSERT_TRUE(std::ofstream(large).flush());
  std::filesystem::resize_file(large, std::size_t{100} << 20U);
  calls = 0;
  EXPECT_THROW(
      static_cast<void>(read_file(large, std::size_t{1} << 30U, kWaitForWriter, leave_later)),
      Interrupted);
}

TEST_F(ReadFileTest, EachTroubleHasItsText) {
  EXPECT_EQ(read_file(file_with("four"), 3).trouble_text(),
            "is larger than 3 bytes, the most that are read");
  EXPECT_EQ(read_file(folder_).trouble_text(), "is a folder");
  const FileBytes missing = read_file(folder_ / "none");
  EXPECT_EQ(missing.trouble, ReadTrouble::CannotBeOpened);
  EXPECT_EQ(missing.trouble_text(), "cannot be opened: No such file or directory");
  // Reading the memory of a process from address 0 fails after the file has been opened.
  const FileBytes unreadable = read_file("/proc/self/mem");
  EXPECT_EQ(unreadable.trouble, ReadTrouble::CannotBeReadToItsEnd);
  EXPECT_EQ(unreadable.trouble_text(), "cannot be read to its end: Input/output error");
}

}  // namespace
}  // namespace varnholt::embedded::test

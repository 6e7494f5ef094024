// A process is told from any later one with its number, across boots and namespaces. Method: the
// real /proc for this process and forked ones, and a small /proc made by hand for the rest.
#include "hosts/embedded/system/process_identity.hpp"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace varnholt::embedded::test {
namespace {

namespace fs = std::filesystem;

TEST(ProcessIdentityTest, OfThisProcessIsComplete) {
  const ProcessIdentity own = own_identity();
  EXPECT_EQ(own.pid, ::getpid());
  EXPECT_GT(own.started_ticks, 0);
  EXPECT_EQ(own.boot_id.size(), 36U);
  EXPECT_EQ(own.pid_namespace.rfind("pid:[", 0), 0U);
  EXPECT_EQ(liveness(own), Liveness::Alive);
}

TEST(ProcessIdentityTest, TellsALivingAZombieAndAGoneProcess) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const ProcessIdentity own = own_identity();
    const auto written = ::write(ready[1], &own.started_ticks, sizeof own.started_ticks);
    if (written != static_cast<ssize_t>(sizeof own.started_ticks)) ::_exit(1);
    while (true) {
      ::pause();
    }
  }
  ProcessIdentity process = own_identity();
  process.pid = child;
  ASSERT_EQ(::read(ready[0], &process.started_ticks, sizeof process.started_ticks),
            static_cast<ssize_t>(sizeof process.started_ticks));
  EXPECT_EQ(liveness(process), Liveness::Alive);
  ::kill(child, SIGKILL);
  siginfo_t info{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(liveness(process), Liveness::Dead) << "a zombie";
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_EQ(liveness(process), Liveness::Dead);
  ::close(ready[0]);
  ::close(ready[1]);
}

class HandMadeProc : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(root_ / "sys/kernel/random");
    fs::create_directories(root_ / "self/ns");
    write("sys/kernel/random/boot_id", "boot-one\n");
    fs::create_symlink("pid:[1]", root_ / "self/ns/pid");
    write("self/stat", stat_line("search", 'R', 900));
  }
  void TearDown() override { fs::remove_all(root_); }

  void write(const std::string& name, const std::string& text) {
    fs::create_directories((root_ / name).parent_path());
    std::ofstream(root_ / name) << text;
  }
  static std::string stat_line(const std::string& name, char state, int started) {
    std::string line = "42 (" + name + ") " + state;
    for (int field = 4; field < 22; ++field) {
      line += ' ' + std::to_string(-field);
    }
    return line + ' ' + std::to_string(started) + " 1000 2000\n";
  }
  [[nodiscard]] Liveness look(const ProcessIdentity& process) const {
    return liveness(process, root_.string());
  }

  const fs::path root_ =
      fs::path(::testing::TempDir()) / ("hand_made_proc_" + std::to_string(::getpid()));
  const ProcessIdentity process_{42, 700, "boot-one", "pid:[1]"};
};

TEST_F(HandMadeProc, IsReadWhateverTheNameOfTheProcess) {
  for (const std::string name : {"search", "a (b) c", ") R 1 2 3", "x) Z", ""}) {
    write("42/stat", stat_line(name, 'S', 700));
    EXPECT_EQ(look(process_), Liveness::Alive) << name;
  }
}

TEST_F(HandMadeProc, TellsALaterProcessWithTheSameNumber) {
  write("42/stat", stat_line("search", 'R', 701));
  EXPECT_EQ(look(process_), Liveness::Dead);
}

TEST_F(HandMadeProc, TellsDeadStates) {
  write("42/stat", stat_line("search", 'Z', 700));
  EXPECT_EQ(look(process_), Liveness::Dead);
  write("42/stat", stat_line("search", 'X', 700));
  EXPECT_EQ(look(process_), Liveness::Dead);
  write("42/stat", stat_line("search", 'T', 700));
  EXPECT_EQ(look(process_), Liveness::Alive) << "stopped is not dead";
}

TEST_F(HandMadeProc, TellsThatNoProcessOutlivesABoot) {
  write("42/stat", stat_line("search", 'R', 700));
  write("sys/kernel/random/boot_id", "boot-two\n");
  EXPECT_EQ(look(process_), Liveness::Dead);
}

TEST_F(HandMadeProc, DoesNotJudgeAnotherNamespace) {
  ProcessIdentity elsewhere = process_;
  elsewhere.pid_namespace = "pid:[2]";
  EXPECT_EQ(look(elsewhere), Liveness::Unknown);
}

TEST_F(HandMadeProc, DoesNotJudgeWithoutAKnownBoot) {
  ProcessIdentity unknown = process_;
  unknown.boot_id.clear();
  EXPECT_EQ(look(unknown), Liveness::Unknown);
  fs::remove(root_ / "sys/kernel/random/boot_id");
  EXPECT_EQ(look(process_), Liveness::Unknown);
}

TEST_F(HandMadeProc, TakesABrokenLineForNoProcess) {
  write("42/stat", "42 (search) R 1 2 3");
  EXPECT_EQ(look(process_), Liveness::Dead);
  write("42/stat", "");
  EXPECT_EQ(look(process_), Liveness::Dead);
}

}  // namespace
}  // namespace varnholt::embedded::test

// What the machine and the control groups leave to this process.
// Method: folders in the shape of /proc and /sys/fs/cgroup, of both versions of control groups.
#include "hosts/embedded/system/machine_limits.hpp"

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace varnholt::embedded::test {
namespace {

constexpr std::uint64_t kMebibyte = 1024 * 1024;

class MachineLimitsTest : public ::testing::Test {
 protected:
  ~MachineLimitsTest() override { std::filesystem::remove_all(folder_); }

  void write(const std::string& path, const std::string& text) const {
    const std::filesystem::path file = folder_ / path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }
  [[nodiscard]] MachineLimits limits() const {
    return read_machine_limits((folder_ / "proc").string(), (folder_ / "groups").string());
  }

  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("varnholt-limits-" + std::to_string(getpid()));
};

TEST_F(MachineLimitsTest, WithoutControlGroupsThereIsTheMachineAlone) {
  write("proc/meminfo", "MemTotal:  900 kB\nMemAvailable:     2048 kB\n");
  const MachineLimits found = limits();
  EXPECT_GE(found.processors, 1);
  EXPECT_EQ(found.busy_workers(), found.processors);
  EXPECT_FALSE(found.processor_quota.has_value());
  EXPECT_FALSE(found.memory_limit_bytes.has_value());
  EXPECT_EQ(found.memory_available_bytes, 2 * kMebibyte);
}

TEST_F(MachineLimitsTest, NothingCanBeToldOfAMachineThatShowsNothing) {
  const MachineLimits found = limits();
  EXPECT_FALSE(found.memory_available_bytes.has_value());
  EXPECT_GE(found.busy_workers(), 1);
}

TEST_F(MachineLimitsTest, TheStrictestGroupOfVersionTwoCounts) {
  write("proc/meminfo", "MemAvailable: 1048576 kB\n");
  write("proc/self/cgroup", "0::/outer/inner\n");
  write("groups/outer/cpu.max", "150000 100000\n");
  write("groups/outer/inner/cpu.max", "max 100000\n");
  write("groups/outer/memory.max", "max\n");
  write("groups/outer/inner/memory.max", std::to_string(100 * kMebibyte));
  write("groups/outer/inner/memory.current", std::to_string(90 * kMebibyte));
  write("groups/outer/inner/memory.stat",
        "anon 5\ninactive_file " + std::to_string(30 * kMebibyte) + "\nactive_file 7\n");
  const MachineLimits found = limits();
  EXPECT_EQ(found.processor_quota, 1.5);
  EXPECT_LE(found.busy_workers(), 2);
  EXPECT_EQ(found.memory_limit_bytes, 100 * kMebibyte);
  EXPECT_EQ(found.memory_available_bytes, 40 * kMebibyte);
}

TEST_F(MachineLimitsTest, AGroupThatUsesMoreThanItMayHasNothingLeft) {
  write("proc/self/cgroup", "0::/\n");
  write("groups/memory.max", "100\n");
  write("groups/memory.current", "150\n");
  EXPECT_EQ(limits().memory_available_bytes, 0U);
}

TEST_F(MachineLimitsTest, VersionOneHasAFolderForEachController) {
  write("proc/self/cgroup", "5:memory:/box\n4:cpu,cpuacct:/box\n3:cpuset:/\n");
  write("groups/cpu/box/cpu.cfs_quota_us", "50000\n");
  write("groups/cpu/box/cpu.cfs_period_us", "100000\n");
  write("groups/cpu/cpu.cfs_quota_us", "-1\n");
  write("groups/cpu/cpu.cfs_period_us", "100000\n");
  write("groups/memory/box/memory.limit_in_bytes", std::to_string(10 * kMebibyte));
  write("groups/memory/box/memory.usage_in_bytes", std::to_string(4 * kMebibyte));
  write("groups/memory/memory.limit_in_bytes", "9223372036854771712\n");
  write("groups/memory/memory.usage_in_bytes", "1\n");
  const MachineLimits found = limits();
  EXPECT_EQ(found.processor_quota, 0.5);
  EXPECT_EQ(found.busy_workers(), 1);
  EXPECT_EQ(found.memory_limit_bytes, 10 * kMebibyte);
  EXPECT_EQ(found.memory_available_bytes, 6 * kMebibyte);
}

TEST_F(MachineLimitsTest, WhatIsMappedIsCountedInPages) {
  write("proc/self/statm", "1000 500 3 2 0 1 0\n");
  EXPECT_EQ(mapped_bytes((folder_ / "proc").string()),
            1000U * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
  EXPECT_FALSE(mapped_bytes((folder_ / "none").string()).has_value());
  EXPECT_GT(mapped_bytes().value_or(0), kMebibyte) << "of this very process";
}

}  // namespace
}  // namespace varnholt::embedded::test

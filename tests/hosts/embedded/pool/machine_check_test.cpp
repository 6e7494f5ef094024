// What is found of a machine, and what is said about it.
// Method: this machine, calls that fail on purpose, and machines as tables of facts.
#include "hosts/embedded/pool/machine_check.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/pool/pool_types.hpp"
#include "tests/hosts/embedded/pool/process_probe.hpp"
#include "tests/hosts/embedded/pool/system_doubles.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// A machine with which nothing is wrong.
MachineFacts good_machine() {
  MachineFacts facts;
  facts.limits.processors = 4;
  facts.pages = {2U << 20U, "madvise", 0};
  facts.fork_cost = ForkCost{2e-4, 2e-3, 3e-4};
  return facts;
}

class MachineCheckTest : public ProcessTest {};

TEST_F(MachineCheckTest, ThisMachineIsReadAndCanFork) {
  RealSystemCalls system;
  const MachineFacts facts = read_machine_facts(system);
  EXPECT_THAT(facts.kernel, HasSubstr("Linux"));
  EXPECT_GE(facts.limits.processors, 1);
  EXPECT_TRUE(facts.threads_can_be_counted);
  ASSERT_TRUE(facts.fork_cost.has_value());
  EXPECT_GT(facts.fork_cost->lean_seconds, 0.0);
  EXPECT_GT(facts.fork_cost->small_pages_seconds, 0.0);
  EXPECT_GT(facts.fork_cost->large_pages_seconds, 0.0);
}

TEST_F(MachineCheckTest, AForkThatIsRefusedPreventsSearching) {
  FailingCalls system(FailingCalls::Call::Fork, EAGAIN, 1, 1000);
  EXPECT_THROW(static_cast<void>(fork_seconds(system, 1)), PoolError);
  const MachineFacts facts = read_machine_facts(system);
  EXPECT_FALSE(facts.fork_cost.has_value());
  const auto findings = machine_findings(facts);
  ASSERT_FALSE(findings.empty());
  EXPECT_TRUE(findings[0].prevents_searching);
  EXPECT_THAT(findings[0].text, HasSubstr("fork failed with errno 11"));
}

TEST_F(MachineCheckTest, AForkThatIsInterruptedIsWaitedFor) {
  InterruptingCalls system;
  EXPECT_GT(fork_seconds(system, 3), 0.0);
  EXPECT_GT(system.interruptions, 0);
}

TEST_F(MachineCheckTest, OfAGoodMachineThereIsNothingToSay) {
  EXPECT_THAT(machine_findings(good_machine()), IsEmpty());
}

TEST_F(MachineCheckTest, WhatPreventsASearchComesFirst) {
  MachineFacts facts = good_machine();
  facts.pages.enabled = "never";
  facts.ends_of_children_are_ignored = true;
  facts.threads_can_be_counted = false;
  const auto findings = machine_findings(facts);
  ASSERT_THAT(findings, SizeIs(3));
  EXPECT_TRUE(findings[0].prevents_searching);
  EXPECT_THAT(findings[0].text, HasSubstr("SIGCHLD"));
  EXPECT_TRUE(findings[1].prevents_searching);
  EXPECT_THAT(findings[1].remedy, HasSubstr("/proc"));
  EXPECT_FALSE(findings[2].prevents_searching);
  EXPECT_THAT(findings[2].text, HasSubstr("1.8 ms more for every 64 MiB"));
  EXPECT_THAT(findings[2].remedy, HasSubstr("transparent_hugepage"));
}

TEST_F(MachineCheckTest, EachHindranceHasItsRemedy) {
  const auto only_finding = [](auto change) {
    MachineFacts facts = good_machine();
    change(facts);
    const auto findings = machine_findings(facts);
    EXPECT_THAT(findings, SizeIs(1));
    return findings.empty() ? MachineFinding() : findings[0];
  };
  EXPECT_THAT(only_finding([](MachineFacts& f) { f.open_files = 20; }).remedy,
              HasSubstr("ulimit -n"));
  EXPECT_THAT(only_finding([](MachineFacts& f) { f.processes = 20; }).remedy,
              HasSubstr("ulimit -u"));
  EXPECT_THAT(only_finding([](MachineFacts& f) { f.address_space_bytes = 1U << 30U; }).text,
              HasSubstr("limited to 1024 MiB"));
  EXPECT_THAT(only_finding([](MachineFacts& f) { f.memory_is_never_overcommitted = true; }).remedy,
              HasSubstr("overcommit"));
  EXPECT_THAT(
      only_finding([](MachineFacts& f) { f.limits.memory_available_bytes = 100U << 20U; }).text,
      HasSubstr("100 MiB"));
  EXPECT_THAT(only_finding([](MachineFacts& f) { f.limits.processor_quota = 0.5; }).text,
              HasSubstr("0.5 of one processor"));
  EXPECT_THAT(
      only_finding([](MachineFacts& f) { f.ends_of_children_can_be_polled = false; }).remedy,
      HasSubstr("5.3"));
  EXPECT_THAT(only_finding([](MachineFacts& f) { f.fork_cost->lean_seconds = 0.01; }).text,
              HasSubstr("10.0 ms"));
}

}  // namespace
}  // namespace varnholt::embedded::test

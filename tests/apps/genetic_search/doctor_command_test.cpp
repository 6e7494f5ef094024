// Goal: doctor tells what the machine has and what to change, and answers whether a search can run.
// Method: machines as tables of facts, and this one.
#include "apps/genetic_search/doctor_command.hpp"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/apps/genetic_search/captured.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

embedded::MachineFacts facts() {
  embedded::MachineFacts facts;
  facts.kernel = "Linux 6.1.0";
  facts.limits.processors = 2;
  facts.limits.memory_available_bytes = std::uint64_t{4} << 30U;
  facts.pages = {2U << 20U, "madvise", 0};
  facts.fork_cost = embedded::ForkCost{0.0002, 0.0025, 0.0003};
  facts.open_files = 1024;
  return facts;
}

TEST(DoctorCommand, TellsWhatTheMachineHas) {
  EXPECT_EQ(machine_page(facts()),
            "machine  Linux 6.1.0, 2 processors, 4096 MiB of memory available\n"
            "limits   1024 open files, any number of processes\n"
            "pages    large ones of 2048 KiB, given to who asks for them\n"
            "fork     0.20 ms as it is, 2.50 ms with 64 MiB in small pages, 0.30 ms with 64 MiB in "
            "large ones\n"
            "\nNothing needs to be changed.\n");
}

TEST(DoctorCommand, NamesWhatToChangeWithItsRemedy) {
  embedded::MachineFacts poor = facts();
  poor.pages.enabled = "never";
  poor.limits.processor_quota = 0.5;
  poor.ends_of_children_are_ignored = true;
  const std::string page = machine_page(poor);
  EXPECT_THAT(page, HasSubstr("of which the control group gives 0.5"));
  EXPECT_THAT(page, HasSubstr("given to nobody"));
  EXPECT_THAT(page, HasSubstr("To change:\n- no search can run: SIGCHLD is ignored"));
  EXPECT_THAT(page, HasSubstr("\n  as root: echo madvise >"));
  poor.fork_cost.reset();
  poor.fork_failure = "no more processes";
  EXPECT_THAT(machine_page(poor), HasSubstr("fork     cannot be measured\n"));
  EXPECT_THAT(machine_page(poor), HasSubstr("no search can run: no process can be forked"));
}

TEST(DoctorCommand, LooksAtThisMachine) {
  embedded::InterruptFlag interrupt;
  Captured text(interrupt);
  EXPECT_TRUE(doctor_command(text.output));
  const std::string page = text.take();
  EXPECT_THAT(page, HasSubstr("machine  Linux"));
  EXPECT_THAT(page, Not(HasSubstr("no search can run")));
}

}  // namespace
}  // namespace varnholt::app::test

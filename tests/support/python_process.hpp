// Runs the installed CPython beside a test, to compare the library with what it imitates.
//
// The interpreter is the one that VARNHOLT_TEST_PYTHON names in the environment, else the one that
// CMake found, else "python3" on the path. A test that needs it fails without it: it is not
// skipped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace varnholt::testing_support {

// The seed of a random test: the number in VARNHOLT_TEST_SEED, else a fresh one. The test shows it
// with SCOPED_TRACE(seed_note(seed)), so that a failure can be run again.
[[nodiscard]] std::uint64_t test_seed();
[[nodiscard]] std::string seed_note(std::uint64_t seed);

// Runs a script of the repository, named from its top, in isolated mode, and returns the lines of
// its output. Throws std::runtime_error that says what to do if there is no interpreter or the
// script fails.
[[nodiscard]] std::vector<std::string> run_python(const std::string& script,
                                                  const std::vector<std::string>& arguments);

// A file for the script to read, deleted at the end.
class ScriptInput {
 public:
  explicit ScriptInput(const std::vector<std::string>& lines);
  ~ScriptInput();
  ScriptInput(const ScriptInput&) = delete;
  ScriptInput& operator=(const ScriptInput&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
};

// The parts of a line between the separators; an empty line is one empty part.
[[nodiscard]] std::vector<std::string> split(const std::string& line, char separator);

}  // namespace varnholt::testing_support

#include "tests/support/python_process.hpp"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>

#include <stdlib.h>
#include <unistd.h>

namespace varnholt::testing_support {
namespace {

std::string python_executable() {
  const char* named = std::getenv("VARNHOLT_TEST_PYTHON");
  if (named != nullptr && *named != '\0') return named;
#ifdef VARNHOLT_PYTHON_EXECUTABLE
  const std::string found = VARNHOLT_PYTHON_EXECUTABLE;
  if (!found.empty()) return found;
#endif
  return "python3";
}

std::string shell_quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char character : text) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted.push_back(character);
    }
  }
  return quoted + "'";
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines = split(text, '\n');
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

}  // namespace

std::uint64_t test_seed() {
  const char* given = std::getenv("VARNHOLT_TEST_SEED");
  if (given != nullptr && *given != '\0') return std::stoull(given);
  std::random_device device;
  return device();
}

std::string seed_note(std::uint64_t seed) {
  return "run again with VARNHOLT_TEST_SEED=" + std::to_string(seed);
}

std::vector<std::string> run_python(const std::string& script,
                                    const std::vector<std::string>& arguments) {
  const std::string python = python_executable();
  std::string command = shell_quoted(python) + " -I -B " +
                        shell_quoted(std::string(VARNHOLT_SOURCE_DIR) + "/" + script);
  for (const std::string& argument : arguments)
    command += " " + shell_quoted(argument);
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("no process could be started for: " + command);
  std::string output;
  char buffer[65536];
  for (std::size_t read = 0; (read = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    output.append(buffer, read);
  }
  const int status = ::pclose(pipe);
  if (status != 0) {
    throw std::runtime_error(
        "this test compares with CPython 3.11 or newer, and \"" + python + "\" failed on " +
        script + " (wait status " + std::to_string(status) +
        "; its own words are above): install it, or name one in VARNHOLT_TEST_PYTHON");
  }
  return lines_of(output);
}

ScriptInput::ScriptInput(const std::vector<std::string>& lines) {
  const char* folder = std::getenv("TMPDIR");
  path_ = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/varnholt-XXXXXX";
  const int descriptor = ::mkstemp(path_.data());
  if (descriptor < 0) throw std::runtime_error("no temporary file could be made at " + path_);
  FILE* file = ::fdopen(descriptor, "w");
  bool written = file != nullptr;
  for (const std::string& line : lines) {
    written = written && std::fputs(line.c_str(), file) >= 0 && std::fputc('\n', file) >= 0;
  }
  if (file == nullptr || std::fclose(file) != 0 || !written) {
    throw std::runtime_error("the temporary file could not be written: " + path_);
  }
}

ScriptInput::~ScriptInput() {
  ::unlink(path_.c_str());
}

std::vector<std::string> split(const std::string& line, char separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = line.find(separator, start);
    parts.push_back(line.substr(start, end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

}  // namespace varnholt::testing_support

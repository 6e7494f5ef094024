#include "hosts/embedded/search/signal_export.hpp"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/run_description.hpp"

namespace varnholt::embedded {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBufferBytes = std::size_t{1} << 20U;

[[noreturn]] void fail(const fs::path& path, int error_number) {
  throw std::system_error(error_number, std::generic_category(),
                          fmt::format("cannot write {}", path.string()));
}

[[noreturn]] void refuse(const fs::path& path, std::string_view trouble, std::string_view remedy) {
  throw ExportError(fmt::format("{}: {}; {}", path.string(), trouble, remedy));
}

[[noreturn]] void refuse_existing(const fs::path& path) {
  refuse(path, "there is such a file already", "name another one, or replace it with --force");
}

// A file in the making: gone with the object unless it was put in its place.
class NewFile {
 public:
  explicit NewFile(const fs::path& path)
      : path_(path), part_(fmt::format("{}.{}.part", path.string(), ::getpid())) {
    descriptor_ = ::open(part_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0) {
      refuse(path, fmt::format("it cannot be made: {}", std::generic_category().message(errno)),
             "name a file in a folder that exists and can be written");
    }
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (!in_place_) ::unlink(part_.c_str());
  }

  void append(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= kBufferBytes) flush();
  }

  void put_in_place(Existing existing) {
    flush();
    // Some file systems tell of a full disk only here.
    if (::fsync(descriptor_) != 0 && errno != EINVAL) fail(path_, errno);
    if (::close(std::exchange(descriptor_, -1)) != 0) fail(path_, errno);
    if (existing == Existing::IsReplaced) {
      if (::rename(part_.c_str(), path_.c_str()) != 0) fail(path_, errno);
    } else if (::renameat2(AT_FDCWD, part_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE) !=
               0) {
      rename_unless_there(errno);
    }
    in_place_ = true;
  }

 private:
  void flush() {
    std::string_view rest = buffer_;
    while (!rest.empty()) {
      const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail(path_, errno);
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
    buffer_.clear();
  }

  // A hard link is the other way to a name that must be free; not every file system has both.
  void rename_unless_there(int error_number) {
    if (error_number == EINVAL || error_number == ENOSYS) {
      if (::link(part_.c_str(), path_.c_str()) == 0) {
        ::unlink(part_.c_str());
        return;
      }
      error_number = errno;
    }
    if (error_number == EEXIST) refuse_existing(path_);
    fail(path_, error_number);
  }

  fs::path path_;
  std::string part_;
  std::string buffer_;
  int descriptor_ = -1;
  bool in_place_ = false;
};

// A symbol as a cell: quoted where it holds what would end the cell, and behind an apostrophe where
// a spreadsheet would take it for a formula.
std::string cell(const std::string& symbol) {
  const bool is_formula = symbol.find_first_of("=+-@\t\r\n") == 0;
  std::string text = is_formula ? "'" + symbol : symbol;
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"') quoted += '"';
    quoted += character;
  }
  return quoted + "\"";
}

void append_number(std::string& text, double number) {
  std::array<char, 32> digits{};  // The longest double has 24.
  const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc()) throw std::logic_error("a double with more than 32 characters");
  text.append(digits.data(), end);
}

}  // namespace

MarketData read_run_prices(const PriceSource& source, const RunStart& run,
                           const InterruptCheck& check) {
  constexpr std::string_view kRemedy =
      "name the price file of the run with --prices FILE, as it was when the run began";
  try {
    return read_prices(source, price_format_of(run), check, run.price_digest).data;
  } catch (const UnreadablePrices& error) {
    refuse(error.place().file, "it " + error.trouble(), kRemedy);
  } catch (const OtherPrices& error) {
    refuse(source.text(),
           fmt::format("it is not the price file of the run: its SHA-256 is {}, that of the run's "
                       "prices {}",
                       error.digest(), run.price_digest),
           kRemedy);
  }
}

Panel history_weights(const MarketData& data, std::string_view graph_json, const BookRules& rules) {
  return Evaluator(data, {.book = rules}).evaluate(read_json(graph_json)).weights;
}

void check_weights_path(const fs::path& path, Existing existing) {
  std::error_code ignored;  // What cannot be looked at is refused when it is made.
  const fs::file_status status = fs::symlink_status(path, ignored);
  if (!fs::exists(status)) return;
  if (existing == Existing::IsKept) refuse_existing(path);
  // A device, for instance, would be replaced by the file.
  if (!fs::is_regular_file(status)) {
    refuse(path, "it is no regular file, and is not replaced", "name another one");
  }
}

std::string weights_head(const MarketData& data) {
  std::string line = "date";
  for (const std::string& symbol : data.symbols)
    line.append(",").append(cell(symbol));
  return line + "\n";
}

std::string weights_row(const MarketData& data, const Panel& weights, Eigen::Index day) {
  std::string line = date_text(data.dates[static_cast<std::size_t>(day)]);
  for (Eigen::Index column = 0; column < weights.cols(); ++column) {
    line += ',';
    append_number(line, weights(day, column));
  }
  return line + "\n";
}

void write_whole_file(const fs::path& path, Existing existing,
                      const std::function<void(const Append&)>& fill) {
  check_weights_path(path, existing);
  NewFile file(path);
  fill([&file](std::string_view text) { file.append(text); });
  file.put_in_place(existing);
}

void write_weights(const fs::path& path, const MarketData& data, const Panel& weights,
                   Existing existing) {
  if (weights.rows() != data.day_count() || weights.cols() != data.instrument_count()) {
    throw std::invalid_argument("weights of another shape than the prices");
  }
  write_whole_file(path, existing, [&](const Append& append) {
    append(weights_head(data));
    for (Eigen::Index day = 0; day < weights.rows(); ++day)
      append(weights_row(data, weights, day));
  });
}

}  // namespace varnholt::embedded

#include "hosts/embedded/market/plain_text.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include <zlib.h>

#include "hosts/embedded/system/memory_advice.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kGzip = "\x1f\x8b";
constexpr std::string_view kLittleEndian = "\xff\xfe";
constexpr std::string_view kBigEndian = "\xfe\xff";
constexpr const char* kSaveAsCsv = "save the prices as CSV";
constexpr const char* kUnpack = "unpack it";

// How files begin that are mistaken for prices.
struct Beginning {
  std::string_view bytes;
  const char* what;
  const char* remedy;
};
constexpr auto kBeginnings = std::to_array<Beginning>({
    {"PK\x03\x04", "is a ZIP archive or a workbook", "unpack it, or save the sheet as CSV"},
    {"\xd0\xcf\x11\xe0", "is a workbook", "save the sheet as CSV"},
    {"\xfd"
     "7zXZ",
     "is an XZ archive", kUnpack},
    {"BZh", "is a bzip2 archive", kUnpack},
    {"\x28\xb5\x2f\xfd", "is a Zstandard archive", kUnpack},
    {"PAR1", "is a Parquet file", kSaveAsCsv},
    {"ARROW1", "is an Arrow file", kSaveAsCsv},
    {"\x89HDF", "is an HDF5 file", kSaveAsCsv},
    {"\x80\x04\x95", "is a Python pickle", kSaveAsCsv},
    {"SQLite format 3", "is an SQLite database", kSaveAsCsv},
    {"%PDF", "is a PDF file", kSaveAsCsv},
    {"<!DOCTYPE", "is a page of the web", "download the CSV file itself"},
    {"<!doctype", "is a page of the web", "download the CSV file itself"},
    {"<html", "is a page of the web", "download the CSV file itself"},
});

[[noreturn]] void refuse(const std::string& file, const std::string& what,
                         const std::string& remedy) {
  throw PriceFileError({.file = file}, what, remedy);
}

class Inflater {
 public:
  Inflater() {
    constexpr int kGzipOnly = 16;
    if (inflateInit2(&stream_, MAX_WBITS + kGzipOnly) != Z_OK) throw std::bad_alloc();
  }
  ~Inflater() { inflateEnd(&stream_); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  z_stream& stream() { return stream_; }

 private:
  z_stream stream_ = {};
};

// A file may be several packed ones, one behind the other.
std::string unpacked(std::string_view bytes, const std::string& file, const InterruptCheck& check) {
  constexpr std::size_t kPiece = std::size_t{1} << 20U;
  Inflater inflater;
  z_stream& stream = inflater.stream();
  std::string text;
  std::string piece(kPiece, '\0');
  while (true) {
    const std::size_t given = std::min<std::size_t>(bytes.size(), kPiece);
    // The library takes a pointer to bytes that it does not write.
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(given);
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    const int result = inflate(&stream, Z_NO_FLUSH);
    bytes.remove_prefix(given - stream.avail_in);
    text.append(piece, 0, piece.size() - stream.avail_out);
    if (check) check();
    if (text.size() > kLargestPriceBytes) {
      refuse(file, "holds more than 4 GiB when it is unpacked", "give a shorter history");
    }
    if (result == Z_STREAM_END) {
      if (!bytes.starts_with(kGzip)) return text;  // What is behind it is padding.
      inflateReset(&stream);
    } else if (result == Z_MEM_ERROR) {
      throw std::bad_alloc();
    } else if (result != Z_OK) {
      refuse(file, bytes.empty() ? "is packed, and ends too early" : "is packed, and damaged",
             "get the file again");
    }
  }
}

void append_utf8(std::string& text, std::uint32_t point) {
  const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (point < 0x80) return add(point);
  if (point < 0x800) {
    add(0xC0 | (point >> 6U));
  } else if (point < 0x10000) {
    add(0xE0 | (point >> 12U));
    add(0x80 | ((point >> 6U) & 0x3FU));
  } else {
    add(0xF0 | (point >> 18U));
    add(0x80 | ((point >> 12U) & 0x3FU));
    add(0x80 | ((point >> 6U) & 0x3FU));
  }
  add(0x80 | (point & 0x3FU));
}

std::string from_utf16(std::string_view bytes, bool is_big, const std::string& file) {
  constexpr const char* kRemedy = "save it as UTF-8";
  if (bytes.size() % 2 != 0) refuse(file, "is UTF-16, and ends within a character", kRemedy);
  const auto unit = [&](std::size_t i) {
    const auto first = static_cast<std::uint8_t>(bytes[i]);
    const auto second = static_cast<std::uint8_t>(bytes[i + 1]);
    return static_cast<std::uint32_t>(is_big ? first << 8U | second : second << 8U | first);
  };
  std::string text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 2; i < bytes.size(); i += 2) {
    std::uint32_t point = unit(i);
    if (point >= 0xD800 && point < 0xE000) {
      const bool is_pair =
          point < 0xDC00 && i + 2 < bytes.size() && unit(i + 2) >= 0xDC00 && unit(i + 2) < 0xE000;
      if (!is_pair) refuse(file, "is UTF-16 with half a character in it", kRemedy);
      i += 2;
      point = 0x10000 + ((point - 0xD800) << 10U) + (unit(i) - 0xDC00);
    }
    append_utf8(text, point);
  }
  return text;
}

void refuse_what_is_no_text(std::string_view text, const std::string& file) {
  for (const Beginning& beginning : kBeginnings) {
    if (text.starts_with(beginning.bytes)) refuse(file, beginning.what, beginning.remedy);
  }
  constexpr std::size_t kLookedAt = 4096;
  if (text.substr(0, kLookedAt).find('\0') != std::string_view::npos) {
    refuse(file, "is a binary file, no text", kSaveAsCsv);
  }
}

}  // namespace

PlainText::PlainText(std::string bytes, const std::string& file, const InterruptCheck& check)
    : text_(std::move(bytes)) {
  if (text_.starts_with(kGzip)) text_ = unpacked(text_, file, check);
  if (text_.starts_with(kLittleEndian) || text_.starts_with(kBigEndian)) {
    text_ = from_utf16(text_, text_.starts_with(kBigEndian), file);
  }
  refuse_what_is_no_text(text_, file);
}

void PlainText::give_back(std::size_t bytes) {
  give_back_contents(text_.data() + given_back_, bytes - given_back_);
  given_back_ = bytes;
}

}  // namespace varnholt::embedded

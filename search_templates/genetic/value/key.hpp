// Fixed texts: the keys and reason names that the search reads and writes.
//
// A `Key` is a text that lives in the program itself. Making a `Value` from one costs neither an
// allocation nor a count, and its hash is computed by the compiler. `keys.hpp` names them all, so
// that a misspelt key does not compile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace varnholt::genetic {

namespace detail {

// What every counted representation begins with. Counts are plain integers: a value belongs to one
// thread at a time, and the library starts none.
struct Counted {
  std::uint32_t references = 1;
};

// The count of a text that lives in the program: never raised, never lowered.
inline constexpr std::uint32_t kImmortal = 0xFFFFFFFF;

// Every text has room for this many characters, however short it is, so that graph walks copy
// nearly all texts in one step. What follows the characters in it is zero.
inline constexpr std::size_t kShortTextRoom = 16;

// A text's representation. For a text made at run time the characters follow in the same block.
struct TextRep : Counted {
  constexpr TextRep(std::uint32_t count, std::string_view text, std::uint64_t text_hash, bool plain)
      : Counted{count},
        size(static_cast<std::uint32_t>(text.size() & kLargestSize)),
        is_plain(plain ? 1U : 0U),
        hash(text_hash),
        characters(text.data()) {}

  static constexpr std::size_t kLargestSize = 0x7FFFFFFF;

  std::uint32_t size : 31;
  // Whether JSON shows every character unescaped.
  std::uint32_t is_plain : 1;
  std::uint64_t hash;
  const char* characters;  // At least kShortTextRoom of them can be read.
};

// Whether JSON shows a character unescaped.
constexpr bool is_plain_in_json(char character) noexcept {
  return character >= 0x20 && character < 0x7F && character != '"' && character != '\\';
}
constexpr bool is_plain_in_json(std::string_view text) noexcept {
  bool plain = true;
  for (const char character : text)
    plain &= is_plain_in_json(character);
  return plain;
}

// FNV-1a, 64 bits (Fowler, Noll, Vo). Texts are short, and the compiler can compute it.
constexpr std::uint64_t hash_text(std::string_view text) noexcept {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char character : text) {
    hash ^= static_cast<unsigned char>(character);
    hash *= 0x100000001B3U;
  }
  return hash;
}

// A text literal as a template argument.
template <std::size_t N>
struct Literal {
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is written where a Literal is asked for.
  consteval Literal(const char (&text)[N]) {
    for (std::size_t i = 0; i < N; ++i)
      characters[i] = text[i];
  }
  [[nodiscard]] constexpr std::string_view view() const { return {characters, N - 1}; }

  char characters[N < kShortTextRoom ? kShortTextRoom : N] = {};
};

template <Literal L>
inline constexpr TextRep kStaticText{kImmortal, L.view(), hash_text(L.view()),
                                     is_plain_in_json(L.view())};

}  // namespace detail

// A fixed text. Made by `key<"graph">()`.
class Key {
 public:
  constexpr explicit Key(const detail::TextRep& rep) noexcept : rep_(&rep) {}

  [[nodiscard]] constexpr std::string_view view() const noexcept {
    return {rep_->characters, rep_->size};
  }
  [[nodiscard]] constexpr const detail::TextRep& rep() const noexcept { return *rep_; }

 private:
  const detail::TextRep* rep_;
};

template <detail::Literal L>
consteval Key key() {
  return Key(detail::kStaticText<L>);
}

}  // namespace varnholt::genetic

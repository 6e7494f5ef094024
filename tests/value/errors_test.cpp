// The error kinds keep their text, tell their exact kind and all the kinds that they are of, and
// stay caught by their base.
#include "search_templates/genetic/value/errors.hpp"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {
namespace {

// The host's exception of the kinds that it is given, any number of them.
class NamedOrigin : public ErrorOrigin {
 public:
  explicit NamedOrigin(std::vector<ErrorKind> kinds = {}) : kinds_(std::move(kinds)) {}

  [[nodiscard]] std::string type_name() const override { return "HostSpecificError"; }
  [[nodiscard]] bool is_of(ErrorKind kind) const override {
    return std::find(kinds_.begin(), kinds_.end(), kind) != kinds_.end();
  }
  [[nodiscard]] Value object() const override { return "the original"; }

 private:
  std::vector<ErrorKind> kinds_;
};

class NarrowError : public ValueError {
 public:
  using ValueError::ValueError;
};

// What becomes of a failure where ValueError and OverflowError are caught.
template <typename Failure>
std::string caught(const Failure& failure) {
  return catching(
      {ErrorKind::kValueError, ErrorKind::kOverflowError},
      [&]() -> std::string { throw Failure(failure); },
      [](const Error& error) { return "caught " + error.text(); });
}

TEST(Errors, TellTheirTextAndExactKind) {
  EXPECT_EQ(TypeError("text").text(), "text");
  EXPECT_STREQ(ValueError("why").what(), "why");
  EXPECT_EQ(TypeError("").type_name(), "TypeError");
  EXPECT_EQ(ValueError("").type_name(), "ValueError");
  EXPECT_EQ(OverflowError("").type_name(), "OverflowError");
  EXPECT_EQ(AttributeError("").type_name(), "AttributeError");
  EXPECT_EQ(KeyError("").type_name(), "KeyError");
  EXPECT_EQ(IndexError("").type_name(), "IndexError");
  EXPECT_EQ(RuntimeError("").type_name(), "RuntimeError");
  EXPECT_EQ(RecursionError("").type_name(), "RecursionError");
}

TEST(Errors, AnOriginGivesItsOwnName) {
  const ValueError error("text", std::make_shared<NamedOrigin>());
  EXPECT_EQ(error.type_name(), "HostSpecificError");
}

TEST(Errors, WithoutAnOriginTheClassTellsTheKinds) {
  EXPECT_TRUE(TypeError("").is_any_of({ErrorKind::kTypeError}));
  EXPECT_TRUE(ValueError("").is_any_of({ErrorKind::kValueError}));
  EXPECT_TRUE(NarrowError("").is_any_of({ErrorKind::kValueError}));
  EXPECT_TRUE(OverflowError("").is_any_of(kConversionErrors));
  EXPECT_FALSE(OverflowError("").is_any_of({ErrorKind::kTypeError, ErrorKind::kValueError}));
  EXPECT_FALSE(KeyError("").is_any_of(kConversionErrors));
  EXPECT_FALSE(TypeError("").is_any_of({}));
}

TEST(Errors, AnOriginTellsEachOfItsKindsWhateverTheClass) {
  const IndexError error("", std::make_shared<NamedOrigin>(
                                 std::vector{ErrorKind::kTypeError, ErrorKind::kOverflowError}));
  EXPECT_TRUE(error.is_any_of({ErrorKind::kTypeError}));
  EXPECT_TRUE(error.is_any_of({ErrorKind::kOverflowError}));
  EXPECT_FALSE(error.is_any_of({ErrorKind::kValueError}));
  EXPECT_FALSE(ValueError("", std::make_shared<NamedOrigin>()).is_any_of(kConversionErrors));
}

TEST(Errors, CatchingAnswersTheKindsThatItNames) {
  EXPECT_EQ(caught(ValueError("v")), "caught v");
  EXPECT_EQ(caught(NarrowError("n")), "caught n");
  EXPECT_EQ(caught(OverflowError("o")), "caught o");
  const auto origin = std::make_shared<NamedOrigin>(std::vector{ErrorKind::kValueError});
  EXPECT_EQ(caught(IndexError("i", origin)), "caught i");
  EXPECT_EQ(catching(
                {ErrorKind::kValueError}, [] { return 5; }, [](const Error&) { return 6; }),
            5);
}

TEST(Errors, CatchingLetsEveryOtherErrorPassAsItIs) {
  EXPECT_THROW(static_cast<void>(caught(TypeError("x"))), TypeError);
  EXPECT_THROW(static_cast<void>(caught(RecursionError("x"))), RecursionError);
  EXPECT_THROW(static_cast<void>(caught(std::runtime_error("x"))), std::runtime_error);
  EXPECT_THROW(static_cast<void>(caught(5)), int);
}

TEST(Errors, AnErrorInPlaceOfAnotherKeepsItsKindAndTheOther) {
  try {
    try {
      throw KeyError("other");
    } catch (const KeyError&) {
      throw_in_place(ValueError("own"));
    }
  } catch (const ValueError& error) {
    EXPECT_EQ(error.text(), "own");
    EXPECT_EQ(error.type_name(), "ValueError");
    EXPECT_NE(dynamic_cast<const InPlaceOfError*>(&error), nullptr);
    ASSERT_NE(error.context(), nullptr);
    EXPECT_THROW(std::rethrow_exception(error.context()), KeyError);
    return;
  }
  FAIL() << "nothing was thrown";
}

TEST(Errors, TheContextIsWhatIsBeingHandledWhenTheErrorIsMade) {
  EXPECT_EQ(TypeError("alone").context(), nullptr);
  try {
    throw KeyError("handled");
  } catch (const KeyError&) {
    const TypeError own("own");
    ASSERT_NE(own.context(), nullptr);
    EXPECT_THROW(std::rethrow_exception(own.context()), KeyError);
  }
  EXPECT_EQ(TypeError("alone again").context(), nullptr);
}

TEST(Errors, ARecursionErrorIsARuntimeErrorAndAnOrdinaryError) {
  EXPECT_THROW(throw RecursionError("deep"), RuntimeError);
  EXPECT_THROW(throw KeyError("key"), LookupError);
  EXPECT_THROW(throw KeyError("key"), std::exception);
}

}  // namespace
}  // namespace varnholt::genetic

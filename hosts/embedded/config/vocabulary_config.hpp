// The table [vocabulary] of a configuration.
#pragma once

#include "hosts/embedded/config/toml_entries.hpp"
#include "hosts/embedded/vocabulary/vocabulary_settings.hpp"

namespace varnholt::embedded {

inline constexpr std::string_view kVocabularyTable = "vocabulary";

// The settings of the table. Throws HostConfigError, which names the first mistake in the order of
// the text: keys and names that are not known, values of another type or out of range, lists that
// do not ascend, names of formulas that mean something else, and formulas that cannot be read with
// all columns and groups that prices may have.
[[nodiscard]] VocabularySettings read_vocabulary_table(const ConfigSource& source,
                                                       const toml::table& table);

}  // namespace varnholt::embedded

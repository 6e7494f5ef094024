// What the commands share that compute weights of stored signals.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "hosts/embedded/market/price_source.hpp"
#include "hosts/embedded/store/store_reader.hpp"

namespace varnholt::app {

// In the place of the name of a file.
inline constexpr const char* kStandardOutput = "-";

// The signals that were submitted to a pool, in the order in which they joined it. Throws
// UsageError where there is none.
[[nodiscard]] std::vector<embedded::EvaluationOfRun> signals_of_pool(embedded::StoreReader& store,
                                                                     const std::string& pool);

// Throws ExportError where the output is a file of the store or the prices, or has the name of one
// that another store keeps beside itself: --force replaces earlier weights, not what they are made
// of.
void refuse_input_as_output(const std::filesystem::path& output,
                            const std::filesystem::path& database,
                            const embedded::PriceSource& prices);

}  // namespace varnholt::app

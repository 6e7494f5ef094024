// Market data with every column and with groups, and a vocabulary in which everything is drawn.
#pragma once

#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {

// Adds the volume-weighted price, the market capitalisation and two groups: one of four sectors for
// good, some instruments without one, and one in which instruments move from day to day.
inline MarketData with_own_columns(MarketData data) {
  data.vwap = (data.high.value() + data.low.value() + data.close * 2.0) / 4.0;
  data.cap = data.close * 1e6;
  GroupPanel sector(data.close.rows(), data.close.cols());
  GroupPanel moving(data.close.rows(), data.close.cols());
  for (Eigen::Index day = 0; day < data.close.rows(); ++day) {
    for (Eigen::Index column = 0; column < data.close.cols(); ++column) {
      sector(day, column) = static_cast<int>(column % 4) - (column % 8 == 7 ? 4 : 0);
      moving(day, column) = static_cast<int>((day / 5 + column) % 3) - 1;
    }
  }
  data.groups.emplace("sector", std::move(sector));
  data.groups.emplace("industry", std::move(moving));
  return data;
}

// Every function is drawn.
inline Vocabulary everything_of(const MarketData& data) {
  Vocabulary vocabulary = make_vocabulary(data);
  for (FunctionEntry& function : vocabulary.functions)
    function.weight = 1.0;
  return vocabulary;
}

inline Vocabulary rich_vocabulary() {
  return everything_of(
      with_own_columns(make_synthetic_universe({.instruments = 9, .days = 20, .factors = 1})));
}

inline RandomGraphOptions rich_options() {
  RandomGraphOptions options;
  options.max_depth = 6;
  options.max_nodes = 40;
  options.constant_share = 0.4;
  return options;
}

}  // namespace varnholt::embedded::test

// A store with a run in it, PnL series of known likeness, and members for a pool.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "tests/hosts/embedded/store/store_fixture.hpp"

namespace varnholt::embedded::test {

// Standard normal draws.
inline Eigen::ArrayXd normal_series(Eigen::Index days, std::uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::normal_distribution<double> draw;
  Eigen::ArrayXd series(days);
  for (Eigen::Index day = 0; day < days; ++day)
    series[day] = draw(generator);
  return series;
}

// A series whose correlation to `series` is `rho` but for chance.
inline Eigen::ArrayXd correlated(const Eigen::ArrayXd& series, double rho, std::uint64_t seed) {
  return rho * series + std::sqrt(1.0 - rho * rho) * normal_series(series.size(), seed);
}

class PoolTest : public StoreTest {
 protected:
  static constexpr Eigen::Index kDays = 250;

  void SetUp() override {
    StoreTest::SetUp();
    store_.emplace(path_);
    run_ = store_->begin_run(start());
  }

  // Records a passing evaluation of a structure of its own, and gives its id.
  std::string evaluate() {
    ++evaluations_;
    store_->record_evaluations(run_, {passing(evaluations_, 1.0)});
    return eval_id_of(run_, evaluations_);
  }
  // Puts a series into the pool without asking the gates.
  std::string join(const Eigen::ArrayXd& pnl) {
    const std::string id = evaluate();
    const std::vector<double> values(pnl.begin(), pnl.end());
    const Enqueued enqueued = store_->submissions().enqueue({pool_, id, {}, "{}", values, 1.0});
    store_->submissions().settle(enqueued.id, {1.0, 0.3, 0.0, 0.7, {}, {}, 2.0});
    return id;
  }

  std::optional<SqliteRunStore> store_;
  std::int64_t run_ = 0;
  std::int64_t evaluations_ = 0;
  const PoolIdentity pool_{"alpha", 1, 2, "data"};
};

}  // namespace varnholt::embedded::test

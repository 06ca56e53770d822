// The min-cost assignment: optimal totals against exhaustive search on random matrices, which
// covers rectangular shapes both ways, forbidden pairs, and more pairs before cheaper ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "assignment.h"

namespace mirvane {
namespace eval {
namespace {

using Pairs = std::vector<std::pair<size_t, size_t>>;
constexpr double kX = CostMatrix::kNoEdge;

TEST(SolveAssignment, AssignsNothingWithoutAllowedPairs) {
  EXPECT_TRUE(SolveAssignment(CostMatrix(0, 0)).empty());
  EXPECT_TRUE(SolveAssignment(CostMatrix(0, 4)).empty());
  EXPECT_TRUE(SolveAssignment(CostMatrix(3, 0)).empty());
  EXPECT_TRUE(SolveAssignment(CostMatrix(2, 3, kX)).empty());
}

// Best (most pairs, then least cost) over every injection of the smaller side.
std::pair<size_t, double> Exhaustive(const CostMatrix& costs) {
  const bool rows_small = costs.rows() <= costs.cols();
  const size_t small = rows_small ? costs.rows() : costs.cols();
  std::vector<size_t> order(rows_small ? costs.cols() : costs.rows());
  std::iota(order.begin(), order.end(), 0);
  std::pair<size_t, double> best{0, 0.0};
  do {
    size_t count = 0;
    double total = 0;
    for (size_t i = 0; i < small; ++i) {
      const double c = rows_small ? costs.at(i, order[i]) : costs.at(order[i], i);
      if (c == kX) continue;
      ++count;
      total += c;
    }
    if (count > best.first || (count == best.first && total < best.second)) best = {count, total};
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

TEST(SolveAssignment, MatchesExhaustiveSearchOnRandomMatrices) {
  std::mt19937 random(12345);
  std::uniform_real_distribution<double> value(-3.0, 10.0);
  std::uniform_int_distribution<int> size(1, 6);
  std::bernoulli_distribution forbidden(0.3);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    CostMatrix costs(static_cast<size_t>(size(random)), static_cast<size_t>(size(random)));
    for (size_t r = 0; r < costs.rows(); ++r) {
      for (size_t c = 0; c < costs.cols(); ++c) {
        costs.at(r, c) = round % 2 == 1 && forbidden(random) ? kX : value(random);
      }
    }
    const Pairs pairs = SolveAssignment(costs);
    EXPECT_TRUE(std::is_sorted(pairs.begin(), pairs.end())) << "by increasing row";
    std::vector<char> row_seen(costs.rows(), 0);
    std::vector<char> col_seen(costs.cols(), 0);
    double total = 0;
    for (const auto& p : pairs) {
      ASSERT_LT(p.first, costs.rows());
      ASSERT_LT(p.second, costs.cols());
      EXPECT_FALSE(row_seen[p.first]++) << "row " << p.first << " twice";
      EXPECT_FALSE(col_seen[p.second]++) << "column " << p.second << " twice";
      EXPECT_NE(costs.at(p.first, p.second), kX);
      total += costs.at(p.first, p.second);
    }
    const auto best = Exhaustive(costs);
    ASSERT_EQ(pairs.size(), best.first);
    EXPECT_NEAR(total, best.second, 1e-9);
  }
}

}  // namespace
}  // namespace eval
}  // namespace mirvane

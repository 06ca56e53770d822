// The min-cost assignment: hand cases and optimal totals against exhaustive search, rectangular
// shapes both ways, forbidden pairs, and the preference for more pairs over cheaper ones.
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

TEST(SolveAssignment, SolvesHandCases) {
  const struct {
    const char* name;
    size_t rows, cols;
    std::vector<double> costs;  // row by row
    Pairs pairs;
  } cases[] = {
      // Greedy would take the 1 first and end at 1 + 7 + 8; the optimum is 2 + 3 + 4.
      {"square", 3, 3, {1, 2, 9, 3, 9, 3, 4, 7, 8}, {{0, 1}, {1, 2}, {2, 0}}},
      {"more pairs over cheaper ones", 2, 2, {0, 10, 10, kX}, {{0, 1}, {1, 0}}},
      {"tall", 4, 1, {5, 2, kX, 3}, {{1, 0}}},
      {"empty", 0, 0, {}, {}},
      {"no rows", 0, 4, {}, {}},
      {"no columns", 3, 0, {}, {}},
      {"all forbidden", 2, 3, {kX, kX, kX, kX, kX, kX}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CostMatrix costs(c.rows, c.cols);
    for (size_t i = 0; i < c.costs.size(); ++i) costs.at(i / c.cols, i % c.cols) = c.costs[i];
    EXPECT_EQ(SolveAssignment(costs), c.pairs);
  }
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

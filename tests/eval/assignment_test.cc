// The min-cost assignment: optimal totals against exhaustive search, rectangular shapes both
// ways, forbidden pairs, and the preference for more pairs over cheaper ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "assignment.h"

namespace mirvane {
namespace eval {
namespace {

double Total(const CostMatrix& costs, const std::vector<std::pair<size_t, size_t>>& pairs) {
  double total = 0;
  for (const auto& p : pairs) total += costs.at(p.first, p.second);
  return total;
}

// Best (most pairs, then least cost) over every injection of the smaller side.
std::pair<size_t, double> Exhaustive(const CostMatrix& costs) {
  const bool rows_small = costs.rows() <= costs.cols();
  const size_t small = rows_small ? costs.rows() : costs.cols();
  const size_t large = rows_small ? costs.cols() : costs.rows();
  std::vector<size_t> order(large);
  std::iota(order.begin(), order.end(), 0);
  std::pair<size_t, double> best{0, 0.0};
  do {
    size_t count = 0;
    double total = 0;
    for (size_t i = 0; i < small; ++i) {
      const double c = rows_small ? costs.at(i, order[i]) : costs.at(order[i], i);
      if (c == CostMatrix::kNoEdge) continue;
      ++count;
      total += c;
    }
    if (count > best.first || (count == best.first && total < best.second)) best = {count, total};
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

void ExpectValid(const CostMatrix& costs, const std::vector<std::pair<size_t, size_t>>& pairs) {
  std::vector<char> row_seen(costs.rows(), 0);
  std::vector<char> col_seen(costs.cols(), 0);
  for (const auto& p : pairs) {
    ASSERT_LT(p.first, costs.rows());
    ASSERT_LT(p.second, costs.cols());
    EXPECT_FALSE(row_seen[p.first]++) << "row " << p.first << " twice";
    EXPECT_FALSE(col_seen[p.second]++) << "column " << p.second << " twice";
    EXPECT_NE(costs.at(p.first, p.second), CostMatrix::kNoEdge);
  }
}

TEST(SolveAssignment, FindsTheKnownOptimumOfASmallSquare) {
  // Greedy would take the 1 first and end at 1 + 7 + 8; the optimum is 2 + 4 + 3 = 9.
  CostMatrix costs(3, 3);
  const double values[3][3] = {{1, 2, 9}, {3, 9, 3}, {4, 7, 8}};
  for (size_t r = 0; r < 3; ++r) {
    for (size_t c = 0; c < 3; ++c) costs.at(r, c) = values[r][c];
  }
  const auto pairs = SolveAssignment(costs);
  ASSERT_EQ(pairs.size(), 3u);
  EXPECT_DOUBLE_EQ(Total(costs, pairs), 9.0);
  EXPECT_EQ(pairs[0], std::make_pair(size_t{0}, size_t{1}));
  EXPECT_EQ(pairs[1], std::make_pair(size_t{1}, size_t{2}));
  EXPECT_EQ(pairs[2], std::make_pair(size_t{2}, size_t{0}));
}

TEST(SolveAssignment, MatchesExhaustiveSearchOnRandomMatrices) {
  std::mt19937 random(12345);
  std::uniform_real_distribution<double> value(-3.0, 10.0);
  std::uniform_int_distribution<int> size(1, 6);
  std::bernoulli_distribution forbidden(0.3);
  for (int round = 0; round < 300; ++round) {
    CostMatrix costs(static_cast<size_t>(size(random)), static_cast<size_t>(size(random)));
    const bool sparse = round % 2 == 1;
    for (size_t r = 0; r < costs.rows(); ++r) {
      for (size_t c = 0; c < costs.cols(); ++c) {
        costs.at(r, c) = sparse && forbidden(random) ? CostMatrix::kNoEdge : value(random);
      }
    }
    const auto pairs = SolveAssignment(costs);
    ExpectValid(costs, pairs);
    const auto best = Exhaustive(costs);
    ASSERT_EQ(pairs.size(), best.first) << "round " << round;
    EXPECT_NEAR(Total(costs, pairs), best.second, 1e-9) << "round " << round;
  }
}

TEST(SolveAssignment, PrefersMorePairsOverCheaperOnes) {
  // Row 0 alone would take column 0 (cost 0); then row 1 has nothing. Two pairs cost 10 + 10.
  CostMatrix costs(2, 2, CostMatrix::kNoEdge);
  costs.at(0, 0) = 0.0;
  costs.at(0, 1) = 10.0;
  costs.at(1, 0) = 10.0;
  const auto pairs = SolveAssignment(costs);
  ASSERT_EQ(pairs.size(), 2u);
  EXPECT_EQ(pairs[0], std::make_pair(size_t{0}, size_t{1}));
  EXPECT_EQ(pairs[1], std::make_pair(size_t{1}, size_t{0}));
}

TEST(SolveAssignment, HandlesEmptyAndFullyForbiddenMatrices) {
  EXPECT_TRUE(SolveAssignment(CostMatrix(0, 0)).empty());
  EXPECT_TRUE(SolveAssignment(CostMatrix(0, 4)).empty());
  EXPECT_TRUE(SolveAssignment(CostMatrix(3, 0)).empty());
  EXPECT_TRUE(SolveAssignment(CostMatrix(2, 3, CostMatrix::kNoEdge)).empty());
}

TEST(SolveAssignment, AssignsTallMatricesByColumn) {
  CostMatrix costs(4, 1);
  costs.at(0, 0) = 5;
  costs.at(1, 0) = 2;
  costs.at(2, 0) = CostMatrix::kNoEdge;
  costs.at(3, 0) = 3;
  const auto pairs = SolveAssignment(costs);
  ASSERT_EQ(pairs.size(), 1u);
  EXPECT_EQ(pairs[0], std::make_pair(size_t{1}, size_t{0}));
}

}  // namespace
}  // namespace eval
}  // namespace mirvane

#include "assignment.h"

#include <algorithm>
#include <cmath>

namespace mirvane {
namespace eval {
namespace {

// Min-cost assignment of every row of a finite n x m matrix (n <= m) to a distinct column.
// Rows are added one at a time; each addition grows a shortest-path tree over the columns with
// reduced costs (cost - row potential - column potential, never negative) until it reaches a
// free column, then flips the path. Index 0 of the column arrays is a virtual column holding the
// row being added. Returns the column of each row.
std::vector<size_t> AssignRows(const std::vector<double>& cost, size_t n, size_t m) {
  const double kInf = std::numeric_limits<double>::infinity();
  std::vector<double> row_potential(n + 1, 0.0);
  std::vector<double> col_potential(m + 1, 0.0);
  std::vector<size_t> row_of_col(m + 1, 0);  // 1-based row, 0 for a free column
  std::vector<size_t> previous_col(m + 1, 0);
  std::vector<double> slack(m + 1);
  std::vector<char> in_tree(m + 1);
  for (size_t row = 1; row <= n; ++row) {
    row_of_col[0] = row;
    size_t col = 0;
    std::fill(slack.begin(), slack.end(), kInf);
    std::fill(in_tree.begin(), in_tree.end(), 0);
    do {
      in_tree[col] = 1;
      const size_t r = row_of_col[col];
      double delta = kInf;
      size_t next = 0;
      for (size_t c = 1; c <= m; ++c) {
        if (in_tree[c]) continue;
        const double reduced = cost[(r - 1) * m + (c - 1)] - row_potential[r] - col_potential[c];
        if (reduced < slack[c]) {
          slack[c] = reduced;
          previous_col[c] = col;
        }
        if (slack[c] < delta) {
          delta = slack[c];
          next = c;
        }
      }
      for (size_t c = 0; c <= m; ++c) {
        if (in_tree[c]) {
          row_potential[row_of_col[c]] += delta;
          col_potential[c] -= delta;
        } else {
          slack[c] -= delta;
        }
      }
      col = next;
    } while (row_of_col[col] != 0);
    while (col != 0) {  // flip the augmenting path back to the virtual column
      const size_t before = previous_col[col];
      row_of_col[col] = row_of_col[before];
      col = before;
    }
  }
  std::vector<size_t> col_of_row(n, 0);
  for (size_t c = 1; c <= m; ++c) {
    if (row_of_col[c] != 0) col_of_row[row_of_col[c] - 1] = c - 1;
  }
  return col_of_row;
}

}  // namespace

std::vector<std::pair<size_t, size_t>> SolveAssignment(const CostMatrix& costs) {
  std::vector<std::pair<size_t, size_t>> pairs;
  const bool transpose = costs.rows() > costs.cols();
  const size_t n = transpose ? costs.cols() : costs.rows();
  const size_t m = transpose ? costs.rows() : costs.cols();
  if (n == 0) return pairs;

  // Forbidden pairs get a cost so high that one more allowed pair always beats any difference
  // in the allowed pairs' costs: with allowed costs shifted into [0, span], n pairs differ by at
  // most n * span.
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (size_t r = 0; r < costs.rows(); ++r) {
    for (size_t c = 0; c < costs.cols(); ++c) {
      const double value = costs.at(r, c);
      if (!std::isfinite(value)) continue;
      low = std::min(low, value);
      high = std::max(high, value);
    }
  }
  if (low > high) return pairs;  // nothing is allowed
  const double forbidden = static_cast<double>(n) * (high - low) + 1.0;

  std::vector<double> shifted(n * m);
  std::vector<char> allowed(n * m);
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j < m; ++j) {
      const double value = transpose ? costs.at(j, i) : costs.at(i, j);
      allowed[i * m + j] = std::isfinite(value);
      shifted[i * m + j] = allowed[i * m + j] ? value - low : forbidden;
    }
  }
  const std::vector<size_t> col_of_row = AssignRows(shifted, n, m);
  for (size_t i = 0; i < n; ++i) {
    const size_t j = col_of_row[i];
    if (!allowed[i * m + j]) continue;
    pairs.emplace_back(transpose ? j : i, transpose ? i : j);
  }
  std::sort(pairs.begin(), pairs.end());
  return pairs;
}

}  // namespace eval
}  // namespace mirvane

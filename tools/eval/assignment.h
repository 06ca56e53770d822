// Minimum-cost assignment between the rows and the columns of a cost matrix (the Hungarian
// method in its shortest-augmenting-path form with potentials, O(n^2 m) for n <= m).
// Pure code; any thread may use its own matrices.
#ifndef MIRVANE_TOOLS_EVAL_ASSIGNMENT_H
#define MIRVANE_TOOLS_EVAL_ASSIGNMENT_H

#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

namespace mirvane {
namespace eval {

// A dense rows x cols matrix of costs. kNoEdge marks a pair that may never be assigned.
class CostMatrix {
 public:
  static constexpr double kNoEdge = std::numeric_limits<double>::infinity();

  CostMatrix(size_t rows, size_t cols, double fill = 0.0)
      : rows_(rows), cols_(cols), costs_(rows * cols, fill) {}

  size_t rows() const { return rows_; }
  size_t cols() const { return cols_; }
  double& at(size_t row, size_t col) { return costs_[row * cols_ + col]; }
  double at(size_t row, size_t col) const { return costs_[row * cols_ + col]; }

 private:
  size_t rows_;
  size_t cols_;
  std::vector<double> costs_;
};

// The assigned (row, col) pairs, by increasing row. Among all assignments it takes one with the
// largest number of allowed pairs, and among those one of least total cost; pairs marked kNoEdge
// (or NaN) never appear. With every pair allowed that is the plain min-cost assignment of
// min(rows, cols) pairs. Costs may be negative.
std::vector<std::pair<size_t, size_t>> SolveAssignment(const CostMatrix& costs);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_ASSIGNMENT_H

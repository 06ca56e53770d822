// Dense indices for the identities of a sequence (in order of first appearance), so that
// per-identity tables can be plain arrays. Plain value; any thread.
#ifndef MIRVANE_TOOLS_EVAL_ID_INDEX_H
#define MIRVANE_TOOLS_EVAL_ID_INDEX_H

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "sequence.h"

namespace mirvane {
namespace eval {

class IdIndex {
 public:
  static IdIndex OfTruth(const Sequence& sequence);
  static IdIndex OfHypotheses(const Sequence& sequence);

  size_t size() const { return ids_.size(); }
  // The index of an id that occurs in the sequence.
  size_t Of(int64_t id) const { return index_.at(id); }
  int64_t IdAt(size_t index) const { return ids_[index]; }

 private:
  void Add(int64_t id);

  std::vector<int64_t> ids_;
  std::unordered_map<int64_t, size_t> index_;
};

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_ID_INDEX_H

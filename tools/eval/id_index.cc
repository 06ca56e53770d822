#include "id_index.h"

namespace mirvane {
namespace eval {

void IdIndex::Add(int64_t id) {
  if (index_.emplace(id, ids_.size()).second) ids_.push_back(id);
}

IdIndex IdIndex::OfTruth(const Sequence& sequence) {
  IdIndex index;
  for (const SequenceFrame& frame : sequence) {
    for (const IdentifiedBox& t : frame.truth) index.Add(t.id);
  }
  return index;
}

IdIndex IdIndex::OfHypotheses(const Sequence& sequence) {
  IdIndex index;
  for (const SequenceFrame& frame : sequence) {
    for (const IdentifiedBox& h : frame.hypotheses) index.Add(h.id);
  }
  return index;
}

}  // namespace eval
}  // namespace mirvane

#include "clear_mot.h"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "assignment.h"

namespace mirvane {
namespace eval {
namespace {

double Ratio(double numerator, double denominator) {
  return numerator / denominator;
}

// What one true object went through, in the order of its appearances.
struct ObjectHistory {
  int64_t appearances = 0;
  int64_t matched = 0;
  int64_t fragmentations = 0;
  bool tracked_before = false;  // some earlier appearance was matched
  bool missed_since = false;    // and some appearance after the last match was missed
};

}  // namespace

std::vector<FrameCorrespondence> MatchFrames(const Sequence& sequence, double threshold) {
  std::vector<FrameCorrespondence> result(sequence.size());
  std::unordered_map<int64_t, int64_t> last_match;  // truth id -> hypothesis id
  for (size_t f = 0; f < sequence.size(); ++f) {
    const SequenceFrame& frame = sequence[f];
    FrameCorrespondence& out = result[f];
    std::vector<char> truth_used(frame.truth.size(), 0);
    std::vector<char> hypothesis_used(frame.hypotheses.size(), 0);

    // Correspondences carried over from earlier frames.
    for (size_t t = 0; t < frame.truth.size(); ++t) {
      const auto last = last_match.find(frame.truth[t].id);
      if (last == last_match.end()) continue;
      for (size_t h = 0; h < frame.hypotheses.size(); ++h) {
        if (hypothesis_used[h] || frame.hypotheses[h].id != last->second) continue;
        const double iou = Iou(frame.truth[t].box, frame.hypotheses[h].box);
        if (iou + kIouTolerance >= threshold) {
          truth_used[t] = hypothesis_used[h] = 1;
          out.matches.push_back({t, h, iou, false});
        }
        break;
      }
    }

    // The rest by assignment.
    std::vector<size_t> free_truth;
    std::vector<size_t> free_hypotheses;
    for (size_t t = 0; t < frame.truth.size(); ++t) {
      if (!truth_used[t]) free_truth.push_back(t);
    }
    for (size_t h = 0; h < frame.hypotheses.size(); ++h) {
      if (!hypothesis_used[h]) free_hypotheses.push_back(h);
    }
    CostMatrix costs(free_truth.size(), free_hypotheses.size(), CostMatrix::kNoEdge);
    for (size_t r = 0; r < free_truth.size(); ++r) {
      for (size_t c = 0; c < free_hypotheses.size(); ++c) {
        const double iou =
            Iou(frame.truth[free_truth[r]].box, frame.hypotheses[free_hypotheses[c]].box);
        if (iou + kIouTolerance >= threshold) costs.at(r, c) = 1.0 - iou;
      }
    }
    for (const auto& pair : SolveAssignment(costs)) {
      const size_t t = free_truth[pair.first];
      const size_t h = free_hypotheses[pair.second];
      const auto last = last_match.find(frame.truth[t].id);
      const bool is_switch = last != last_match.end() && last->second != frame.hypotheses[h].id;
      truth_used[t] = hypothesis_used[h] = 1;
      out.matches.push_back({t, h, 1.0 - costs.at(pair.first, pair.second), is_switch});
    }

    for (const FrameMatch& m : out.matches) {
      last_match[frame.truth[m.truth].id] = frame.hypotheses[m.hypothesis].id;
    }
    std::sort(out.matches.begin(), out.matches.end(),
              [](const FrameMatch& a, const FrameMatch& b) { return a.truth < b.truth; });
    for (size_t t = 0; t < frame.truth.size(); ++t) {
      if (!truth_used[t]) out.misses.push_back(t);
    }
    for (size_t h = 0; h < frame.hypotheses.size(); ++h) {
      if (!hypothesis_used[h]) out.false_positives.push_back(h);
    }
  }
  return result;
}

double ClearMot::Mota() const {
  return 1.0 - Ratio(static_cast<double>(misses + false_positives + switches),
                     static_cast<double>(truth_boxes));
}

double ClearMot::Motp() const {
  return Ratio(iou_sum, static_cast<double>(matches));
}

double ClearMot::Recall() const {
  return Ratio(static_cast<double>(matches), static_cast<double>(truth_boxes));
}

double ClearMot::Precision() const {
  return Ratio(static_cast<double>(matches), static_cast<double>(hypothesis_boxes));
}

ClearMot ComputeClearMot(const Sequence& sequence,
                         const std::vector<FrameCorrespondence>& correspondence) {
  ClearMot result;
  result.frames = static_cast<int64_t>(sequence.size());
  std::unordered_map<int64_t, ObjectHistory> objects;
  std::set<int64_t> hypothesis_ids;
  for (size_t f = 0; f < sequence.size() && f < correspondence.size(); ++f) {
    const SequenceFrame& frame = sequence[f];
    const FrameCorrespondence& match = correspondence[f];
    result.truth_boxes += static_cast<int64_t>(frame.truth.size());
    result.hypothesis_boxes += static_cast<int64_t>(frame.hypotheses.size());
    for (const IdentifiedBox& h : frame.hypotheses) hypothesis_ids.insert(h.id);
    for (const FrameMatch& m : match.matches) {
      ++result.matches;
      result.iou_sum += m.iou;
      result.switches += m.is_switch;
      ObjectHistory& history = objects[frame.truth[m.truth].id];
      ++history.appearances;
      ++history.matched;
      if (history.missed_since) ++history.fragmentations;
      history.tracked_before = true;
      history.missed_since = false;
    }
    for (size_t t : match.misses) {
      ++result.misses;
      ObjectHistory& history = objects[frame.truth[t].id];
      ++history.appearances;
      if (history.tracked_before) history.missed_since = true;
    }
    result.false_positives += static_cast<int64_t>(match.false_positives.size());
  }
  result.truth_ids = static_cast<int64_t>(objects.size());
  result.hypothesis_ids = static_cast<int64_t>(hypothesis_ids.size());
  for (const auto& entry : objects) {
    const ObjectHistory& history = entry.second;
    result.fragmentations += history.fragmentations;
    const double ratio =
        static_cast<double>(history.matched) / static_cast<double>(history.appearances);
    if (ratio >= 0.8) {
      ++result.mostly_tracked;
    } else if (ratio >= 0.2) {
      ++result.partially_tracked;
    } else {
      ++result.mostly_lost;
    }
  }
  return result;
}

ClearMot ComputeClearMot(const Sequence& sequence, double threshold) {
  return ComputeClearMot(sequence, MatchFrames(sequence, threshold));
}

}  // namespace eval
}  // namespace mirvane

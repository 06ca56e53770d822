#include "hota.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "assignment.h"
#include "id_index.h"

namespace mirvane {
namespace eval {
namespace {

// IoU of every truth (row) with every hypothesis (column) of a frame.
CostMatrix Similarity(const SequenceFrame& frame) {
  CostMatrix similarity(frame.truth.size(), frame.hypotheses.size());
  for (size_t t = 0; t < frame.truth.size(); ++t) {
    for (size_t h = 0; h < frame.hypotheses.size(); ++h) {
      similarity.at(t, h) = Iou(frame.truth[t].box, frame.hypotheses[h].box);
    }
  }
  return similarity;
}

double AtLeastOne(double value) {
  return std::max(1.0, value);
}

}  // namespace

double HotaAlpha(size_t index) {
  return 0.05 * static_cast<double>(index + 1);
}

HotaScores ComputeHota(const Sequence& sequence) {
  const IdIndex truth_index = IdIndex::OfTruth(sequence);
  const IdIndex hypothesis_index = IdIndex::OfHypotheses(sequence);
  const size_t hypothesis_count = hypothesis_index.size();
  std::vector<double> truth_frames(truth_index.size(), 0.0);
  std::vector<double> hypothesis_frames(hypothesis_count, 0.0);
  int64_t truth_boxes = 0;
  int64_t hypothesis_boxes = 0;

  // Co-occurrence of each identity pair: per frame, the pair's IoU over the sum of the IoUs of
  // both with everything else in the frame (a soft share of the frame's overlaps).
  std::vector<double> co_occurrence(truth_index.size() * hypothesis_count, 0.0);
  for (const SequenceFrame& frame : sequence) {
    truth_boxes += static_cast<int64_t>(frame.truth.size());
    hypothesis_boxes += static_cast<int64_t>(frame.hypotheses.size());
    const CostMatrix similarity = Similarity(frame);
    std::vector<double> row_sum(frame.truth.size(), 0.0);
    std::vector<double> col_sum(frame.hypotheses.size(), 0.0);
    for (size_t t = 0; t < frame.truth.size(); ++t) {
      for (size_t h = 0; h < frame.hypotheses.size(); ++h) {
        row_sum[t] += similarity.at(t, h);
        col_sum[h] += similarity.at(t, h);
      }
    }
    for (size_t t = 0; t < frame.truth.size(); ++t) {
      const size_t ti = truth_index.Of(frame.truth[t].id);
      truth_frames[ti] += 1.0;
      for (size_t h = 0; h < frame.hypotheses.size(); ++h) {
        const double denominator = row_sum[t] + col_sum[h] - similarity.at(t, h);
        if (denominator <= kIouTolerance) continue;
        co_occurrence[ti * hypothesis_count + hypothesis_index.Of(frame.hypotheses[h].id)] +=
            similarity.at(t, h) / denominator;
      }
    }
    for (const IdentifiedBox& h : frame.hypotheses) {
      hypothesis_frames[hypothesis_index.Of(h.id)] += 1.0;
    }
  }
  std::vector<double> alignment(co_occurrence.size(), 0.0);
  for (size_t t = 0; t < truth_index.size(); ++t) {
    for (size_t h = 0; h < hypothesis_count; ++h) {
      const double shared = co_occurrence[t * hypothesis_count + h];
      if (shared > 0) {
        alignment[t * hypothesis_count + h] =
            shared / (truth_frames[t] + hypothesis_frames[h] - shared);
      }
    }
  }

  // Per frame pairing and the counts at each alpha.
  HotaScores scores;
  std::array<double, kHotaAlphaCount> iou_sum{};
  std::array<std::unordered_map<size_t, double>, kHotaAlphaCount> pair_matches;
  for (const SequenceFrame& frame : sequence) {
    const CostMatrix similarity = Similarity(frame);
    CostMatrix costs(frame.truth.size(), frame.hypotheses.size());
    std::vector<size_t> pair_keys(frame.truth.size() * frame.hypotheses.size());
    for (size_t t = 0; t < frame.truth.size(); ++t) {
      const size_t ti = truth_index.Of(frame.truth[t].id);
      for (size_t h = 0; h < frame.hypotheses.size(); ++h) {
        const size_t key = ti * hypothesis_count + hypothesis_index.Of(frame.hypotheses[h].id);
        pair_keys[t * frame.hypotheses.size() + h] = key;
        costs.at(t, h) = -alignment[key] * similarity.at(t, h);
      }
    }
    for (const auto& pair : SolveAssignment(costs)) {
      const double iou = similarity.at(pair.first, pair.second);
      const size_t key = pair_keys[pair.first * frame.hypotheses.size() + pair.second];
      for (size_t a = 0; a < kHotaAlphaCount; ++a) {
        if (iou + kIouTolerance < HotaAlpha(a)) break;  // alphas grow
        ++scores.at_alpha[a].tp;
        iou_sum[a] += iou;
        pair_matches[a][key] += 1.0;
      }
    }
  }

  for (size_t a = 0; a < kHotaAlphaCount; ++a) {
    HotaAtAlpha& s = scores.at_alpha[a];
    s.fn = truth_boxes - s.tp;
    s.fp = hypothesis_boxes - s.tp;
    double ass_a = 0;
    double ass_re = 0;
    double ass_pr = 0;
    for (const auto& entry : pair_matches[a]) {
      const double matches = entry.second;
      const double truth = truth_frames[entry.first / hypothesis_count];
      const double hypothesis = hypothesis_frames[entry.first % hypothesis_count];
      ass_a += matches * matches / (truth + hypothesis - matches);
      ass_re += matches * matches / AtLeastOne(truth);
      ass_pr += matches * matches / AtLeastOne(hypothesis);
    }
    const double tp = static_cast<double>(s.tp);
    s.ass_a = ass_a / AtLeastOne(tp);
    s.ass_re = ass_re / AtLeastOne(tp);
    s.ass_pr = ass_pr / AtLeastOne(tp);
    s.det_re = tp / AtLeastOne(tp + static_cast<double>(s.fn));
    s.det_pr = tp / AtLeastOne(tp + static_cast<double>(s.fp));
    s.det_a = tp / AtLeastOne(tp + static_cast<double>(s.fn + s.fp));
    s.hota = std::sqrt(s.det_a * s.ass_a);
    // No true positives: localisation is vacuously perfect.
    s.loc_a = s.tp > 0 ? iou_sum[a] / tp : 1.0;
  }
  HotaParts& mean = scores.mean;
  for (const HotaAtAlpha& s : scores.at_alpha) {
    mean.hota += s.hota;
    mean.det_a += s.det_a;
    mean.ass_a += s.ass_a;
    mean.det_re += s.det_re;
    mean.det_pr += s.det_pr;
    mean.ass_re += s.ass_re;
    mean.ass_pr += s.ass_pr;
    mean.loc_a += s.loc_a;
  }
  for (double* part : {&mean.hota, &mean.det_a, &mean.ass_a, &mean.det_re, &mean.det_pr,
                       &mean.ass_re, &mean.ass_pr, &mean.loc_a}) {
    *part /= static_cast<double>(kHotaAlphaCount);
  }
  return scores;
}

}  // namespace eval
}  // namespace mirvane

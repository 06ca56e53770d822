// Fixtures written as text, one string per frame: "truth | hypotheses", each box
// "id@column", "id@column:iou" or (for reports) "id@column/flags", with an optional "N*" in front
// to repeat the frame N times. Objects stand in columns ten units apart so that only boxes in the
// same column overlap; a hypothesis overlaps the true box of its column with exactly the IoU it
// is given (same box, height cut to the IoU).
#ifndef MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H
#define MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "sequence.h"

namespace mirvane {
namespace eval {

inline Box Cell(int column, double height = 1.0) {
  const double x = 10.0 * column;
  return Box{x, 0.0, x + 1.0, height};
}

struct TextBox {
  int64_t id = 0;
  Box box;
  int flags = 0;
};

struct TextFrame {
  std::vector<TextBox> truth;
  std::vector<TextBox> hypotheses;
};

inline std::vector<TextFrame> ParseFrames(const std::vector<std::string>& frames) {
  std::vector<TextFrame> parsed;
  for (const std::string& text : frames) {
    TextFrame frame;
    std::istringstream words(text);
    std::string word;
    int repeat = 1;
    bool hypotheses = false;
    while (words >> word) {
      if (word == "|") {
        hypotheses = true;
      } else if (word.back() == '*') {
        repeat = std::stoi(word);
      } else {
        TextBox box;
        char* end = nullptr;
        box.id = std::strtoll(word.c_str(), &end, 10);
        const int column = static_cast<int>(std::strtol(end + 1, &end, 10));
        const double iou = *end == ':' ? std::strtod(end + 1, &end) : 1.0;
        if (*end == '/') box.flags = static_cast<int>(std::strtol(end + 1, &end, 10));
        box.box = Cell(column, iou);
        (hypotheses ? frame.hypotheses : frame.truth).push_back(box);
      }
    }
    parsed.insert(parsed.end(), static_cast<size_t>(repeat), frame);
  }
  return parsed;
}

inline Sequence Frames(const std::vector<std::string>& frames) {
  Sequence sequence;
  for (const TextFrame& text : ParseFrames(frames)) {
    sequence.emplace_back();
    for (const TextBox& b : text.truth) sequence.back().truth.push_back({b.id, b.box});
    for (const TextBox& b : text.hypotheses) sequence.back().hypotheses.push_back({b.id, b.box});
  }
  return sequence;
}

// Two true objects: a (id 1, column 0) in frames 0-4 and b (id 2, column 1) in frames 0-3.
// The tracker splits a into h1 (frames 0-1), h2 (2-3) and h3 (4), and b into h4 (0-1) and
// h5 (2-3). h1 lingers in frames 2 and 3 beside a with IoU 0.3 (below the threshold). In
// frame 1 h4 covers b with IoU 0.6, everything else matched covers with IoU 1.
//
//   frame    0        1        2          3          4
//   a        h1       h1       h2 (h1~)   h2 (h1~)   h3
//   b        h4       h4@.6    h5         h5
//
// CLEAR: 9 true boxes, all matched; 11 hypothesis boxes, the two lingering h1 are false
// positives; switches: a h1->h2 in frame 2, a h2->h3 in frame 4, b h4->h5 in frame 2 = 3.
//   MOTA = 1 - (0 misses + 2 FP + 3 switches) / 9 = 1 - 5/9 = 4/9;  MOTP = (8 + 0.6) / 9.
// Identity: pair frames a-h1 2, a-h2 2, a-h3 1, b-h4 2, b-h5 2; the best pairing takes one
// 2 for each object: IDTP = 4, IDFN = 9 - 4 = 5, IDFP = 11 - 4 = 7.
//   IDF1 = 2*4 / (9 + 11) = 0.4;  IDP = 4/11;  IDR = 4/9.
inline Sequence TwoTracksSplitThreeSwitches() {
  return Frames(
      {"1@0 2@1 | 1@0 4@1", "1@0 2@1 | 1@0 4@1:0.6", "2* 1@0 2@1 | 1@0:0.3 2@0 5@1", "1@0 | 3@0"});
}

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H

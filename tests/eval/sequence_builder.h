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

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H

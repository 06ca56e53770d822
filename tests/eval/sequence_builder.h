// Runs written as text, one string per frame: "truth | reports", each box "id@column",
// "id@column:iou" or "id@column/flags", with an optional "N*" in front to repeat the frame N
// times. Objects stand in columns ten units apart so that only boxes in the same column overlap;
// a report overlaps the true box of its column with exactly the IoU it is given (same box,
// height cut to the IoU).
#ifndef MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H
#define MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "run.h"

namespace mirvane {
namespace eval {

inline Box Cell(int column, double height = 1.0) {
  const double x = 10.0 * column;
  return Box{x, 0.0, x + 1.0, height};
}

// Ten frames a second from 1 s on, every frame both in the truth and reported.
inline AlignedRun RunOf(const std::vector<std::string>& frames) {
  AlignedRun run;
  for (const std::string& text : frames) {
    RunFrame frame;
    frame.in_truth = frame.reported = true;
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
        char* end = nullptr;
        const int64_t id = std::strtoll(word.c_str(), &end, 10);
        const int column = static_cast<int>(std::strtol(end + 1, &end, 10));
        const double iou = *end == ':' ? std::strtod(end + 1, &end) : 1.0;
        const int flags = *end == '/' ? static_cast<int>(std::strtol(end + 1, &end, 10)) : 0;
        if (hypotheses) {
          frame.reported_objects.push_back({id, "person", flags, 0, 0, Cell(column, iou)});
        } else {
          frame.truth.push_back({id, "person", Cell(column)});
        }
      }
    }
    for (int i = 0; i < repeat; ++i) {
      frame.frame = static_cast<int64_t>(run.frames.size());
      frame.time = 0.1 * static_cast<double>(frame.frame);
      frame.timestamp = 1000000 + 100000 * static_cast<uint64_t>(frame.frame);
      run.frames.push_back(frame);
    }
  }
  return run;
}

inline Sequence Frames(const std::vector<std::string>& frames) {
  return ToSequence(RunOf(frames));
}

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H

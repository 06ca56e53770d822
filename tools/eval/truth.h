// The scene's ground truth as the evaluator sees it: per frame the platform timestamp (the one
// the daemon's events carry, bit for bit), the scene's frame index and time, and each drawn
// object with its id, class name and normalised box. Readers turn a file's text into it.
//
// Formats read:
//  - JSON lines, one frame per line (frames without objects included):
//      {"frame":12,"timestamp":1480000,"time":0.48,
//       "objects":[{"id":3,"class":"person","box":[0.1,0.2,0.15,0.4]}]}
//    "time" (seconds into the scene) is optional; "class" is a name or a class id 1..4. An
//    optional first line without "timestamp" describes the run: {"fps":25,...}.
//  - CSV as the host simulation writes it: "# scene=... width=W height=H fps=F frames=N", a
//    column line (count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1), then one row per
//    drawn object with its pixel box; frames without objects have no row.
// Plain values and stateless readers; any thread.
#ifndef MIRVANE_TOOLS_EVAL_TRUTH_H
#define MIRVANE_TOOLS_EVAL_TRUTH_H

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "sequence.h"

namespace mirvane {
namespace eval {

struct TruthObject {
  int64_t id = 0;
  std::string class_name;
  Box box;  // normalised to the picture
};

struct TruthFrame {
  uint64_t timestamp = 0;  // microseconds, the platform's frame timestamp
  int64_t frame = -1;      // the scene's frame index; -1 when unknown
  double time = std::numeric_limits<double>::quiet_NaN();  // seconds into the scene
  std::vector<TruthObject> objects;
};

struct GroundTruth {
  std::vector<TruthFrame> frames;  // by timestamp, one per timestamp
  double fps = 0;                  // 0 when unknown
  // The simulation's scene name ("video=<file>" for a video file) and picture size, when the file
  // names them (the CSV's "#" line).
  std::string scene;
  int width = 0;
  int height = 0;
  // True when the file lists frames without objects too, so that a timestamp it does not list
  // was not a frame of the run.
  bool lists_empty_frames = false;
};

// dva::ClassName of a class id of the daemon; "class<N>" for any other id.
std::string ClassNameOfId(int64_t class_id);

class ITruthReader {
 public:
  virtual ~ITruthReader() = default;
  // Reads a whole file's text; false with a reason (and its line) on malformed input. Frames
  // come out sorted by timestamp with every frame's time filled in.
  virtual bool Read(const std::string& text, GroundTruth* truth, std::string* error) const = 0;
};

class JsonLinesTruthReader : public ITruthReader {
 public:
  bool Read(const std::string& text, GroundTruth* truth, std::string* error) const override;
};

class SimulationCsvTruthReader : public ITruthReader {
 public:
  bool Read(const std::string& text, GroundTruth* truth, std::string* error) const override;
};

// The reader for a text by its first character: '{' JSON lines, anything else CSV.
std::unique_ptr<ITruthReader> TruthReaderFor(const std::string& text);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_TRUTH_H

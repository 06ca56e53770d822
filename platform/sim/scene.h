// Synthetic scenes: objects of the four classes moving along keyframed boxes over a textured
// background, rendered deterministically (the same scene, size and rate give the same bytes on
// every run and every platform).
//
// Scene file (JSON; coordinates normalised to the picture, times in seconds):
//   {
//     "name": "default", "duration": 40,
//     "background": {"seed": 7},
//     "objects": [
//       {"id": 1, "class": "person", "keys": [[0, 0.9, 0.5, 0.95, 0.8], [5, 0.6, 0.5, 0.65, 0.8]]}
//     ],
//     "generate": [
//       {"class": "person", "count": 20, "seed": 3, "from": 0, "to": 30, "first_id": 100,
//        "height": [0.1, 0.2], "aspect": 0.45, "speed": [0.05, 0.12], "stop": 0.3}
//     ]
//   }
// A key is [t, xmin, ymin, xmax, ymax]; an object exists from its first key's time to its last
// key's, its box moving linearly between keys (equal keys: it stands still). Boxes may reach
// outside the picture (entering, leaving). Later objects are drawn over earlier ones. "generate"
// adds walkers that cross the picture sideways, some stopping on the way.
// Classes: "person" (1), "vehicle" (2), "other" (3), "vehicle2" (4), each drawn in its own colour.
#ifndef MIRVANE_PLATFORM_SIM_SCENE_H
#define MIRVANE_PLATFORM_SIM_SCENE_H

#include <cstdint>
#include <string>
#include <vector>

#include "frame_source.h"

namespace mirvane {
namespace sim {

struct Yuv {
  uint8_t y;
  uint8_t u;
  uint8_t v;
};

// The colour an object of the class is drawn in (class ids 1..4); the background's chroma stays
// within kBackgroundChromaSpread of neutral (128), far from every class colour.
Yuv ClassColour(int class_id);
constexpr int kBackgroundChromaSpread = 6;
// "person", "vehicle", "other", "vehicle2"; 0 for an unknown name.
int ClassIdFromName(const std::string& name);

struct NormBox {
  double xmin = 0;
  double ymin = 0;
  double xmax = 0;
  double ymax = 0;
};

struct SceneKey {
  double t = 0;
  NormBox box;
};

struct SceneObject {
  int id = 0;
  int class_id = 0;
  std::vector<SceneKey> keys;  // by time
};

struct Scene {
  std::string name;
  double duration = 0;
  uint64_t background_seed = 1;
  std::vector<SceneObject> objects;  // drawing order
};

bool ParseScene(const std::string& text, Scene* scene, std::string* error);
// A shipped scene by name, or else a scene file by path.
bool LoadScene(const std::string& name_or_path, Scene* scene, std::string* error);
std::vector<std::string> ShippedSceneNames();
// The text of a shipped scene, or nullptr.
const char* ShippedSceneText(const std::string& name);

// The object's box at time t; false when the object does not exist then.
bool BoxAt(const SceneObject& object, double t, NormBox* box);

// Renders a scene at a picture size and frame rate. Owns the background picture; Render is const
// and may be called from any thread.
class SceneRenderer {
 public:
  SceneRenderer(Scene scene, uint32_t width, uint32_t height, double fps);

  int64_t FrameCount() const { return frame_count_; }
  const Scene& scene() const { return scene_; }
  // What frame index shows: the objects' pixel boxes, in drawing order.
  void GroundTruth(int64_t index, std::vector<GroundTruthBox>* truth) const;
  void Render(int64_t index, const Nv12Image& picture, std::vector<GroundTruthBox>* truth) const;

 private:
  void DrawObject(const GroundTruthBox& box, const Nv12Image& picture) const;

  Scene scene_;
  uint32_t width_;
  uint32_t height_;
  double fps_;
  int64_t frame_count_;
  std::vector<uint8_t> background_;  // width x height luma, then width x height/2 chroma
};

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_SCENE_H

// Test pictures drawn the way the scene renderer draws objects: a 384x384 YUV 4:2:0 picture with
// a textured background of near-neutral chroma, and filled boxes with striped luma, a darker
// border and the class's flat chroma.
#ifndef MIRVANE_TESTS_SIM_AI_SCENE_DRAWING_H
#define MIRVANE_TESTS_SIM_AI_SCENE_DRAWING_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace mirvane {
namespace sim_ai_test {

constexpr int kPictureSize = 384;
constexpr size_t kPictureBytes = kPictureSize * kPictureSize * 3 / 2;

// Class id 1..4 and the box in pixels (x1, y1 exclusive); parts outside the picture are cut.
struct Box {
  int class_id;
  int x0, y0, x1, y1;
};

class TestPicture {
 public:
  // Background only; seed varies its texture. Width and height even.
  explicit TestPicture(uint32_t seed = 1, int width = kPictureSize, int height = kPictureSize);
  // Draws over what is there, like a later object of the scene.
  void Draw(const Box& box);
  // Black luma and neutral chroma below row `rows`, like the letterbox padding.
  void PadBelow(int rows);
  // The picture letterboxed into a 384x384 input as the daemon does it: scaled bilinearly into
  // the top left corner, black luma and neutral chroma around it.
  TestPicture Letterboxed() const;
  uint8_t* data() { return bytes_.data(); }
  int width() const { return width_; }
  int height() const { return height_; }

 private:
  int width_, height_;
  std::vector<uint8_t> bytes_;
};

}  // namespace sim_ai_test
}  // namespace mirvane

#endif  // MIRVANE_TESTS_SIM_AI_SCENE_DRAWING_H

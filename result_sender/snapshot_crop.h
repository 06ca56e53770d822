// The frame rectangle a snapshot is taken from: the object's box grown by 10 % and brought to a
// 16:9 shape about its centre, kept inside the frame, never smaller than 28 x 16.
// Pure code; any thread.
#ifndef MIRVANE_RESULT_SENDER_SNAPSHOT_CROP_H
#define MIRVANE_RESULT_SENDER_SNAPSHOT_CROP_H

namespace mirvane {
namespace result_sender {

struct CropRect {
  int x = 0;
  int y = 0;
  int w = 0;
  int h = 0;
};

// Box corners normalised 0..1; width and height of the frame in pixels (both at least 1).
CropRect SnapshotCrop(float xmin, float ymin, float xmax, float ymax, int width, int height);

}  // namespace result_sender
}  // namespace mirvane

#endif  // MIRVANE_RESULT_SENDER_SNAPSHOT_CROP_H

// Helpers of the rule tests: frames of tracked objects.
#ifndef MIRVANE_TESTS_RULES_RULE_TEST_SUPPORT_H
#define MIRVANE_TESTS_RULES_RULE_TEST_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <unordered_set>
#include <vector>

#include "bin/tracked_object.h"
#include "common/geometry.h"

namespace mirvane {
namespace testing {

inline TrackedObject Object(uint32_t tracking_id, int32_t class_id, dva::Box box) {
  TrackedObject object;
  object.score = 0.9f;
  object.xmin = box.xmin;
  object.ymin = box.ymin;
  object.xmax = box.xmax;
  object.ymax = box.ymax;
  object.class_id = class_id;
  object.tracking_id = tracking_id;
  return object;
}

// A frame with four class lists (class ids 1 to 4); each object goes to the list of its class.
inline TrackResult Frame(std::initializer_list<TrackedObject> objects,
                         std::initializer_list<uint32_t> removed = {}) {
  TrackResult result;
  result.objects.resize(4);
  result.removed_ids.resize(4);
  for (const TrackedObject& object : objects) result.objects[object.class_id - 1].push_back(object);
  result.removed_ids[0] = std::unordered_set<uint32_t>(removed);
  return result;
}

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_RULES_RULE_TEST_SUPPORT_H

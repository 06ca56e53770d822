#include "bin/event_converter.h"

#include <algorithm>

#include "common/log.h"
#include "common/object_class.h"

namespace mirvane {
namespace {

struct WorkItem {
  const TrackedObject* object;
  bool pv_trigger;
  uint8_t int_trigger;
};

template <typename T>
T At(const std::vector<std::vector<T>>& lists, size_t i, size_t j) {
  // Rule results always match the groups; a missing entry reads as "not triggered".
  if (i >= lists.size() || j >= lists[i].size()) return T();
  return lists[i][j];
}

}  // namespace

SnapshotIdCache::SnapshotIdCache(std::unique_ptr<result_sender::ISnapshotGetter> getter,
                                 dva::SteadyNow now)
    : getter_(std::move(getter)), now_(std::move(now)) {}

int32_t SnapshotIdCache::Get(int32_t tracking_id, const VENDOR_AI_BUF& frame,
                             const TrackedObject& object) {
  const dva::SteadyTimePoint now = now_();
  auto it = entries_.find(tracking_id);
  if (it == entries_.end()) {
    const int32_t id =
        getter_->GetSnapshot(frame, object.xmin, object.ymin, object.xmax, object.ymax);
    it = entries_.emplace(tracking_id, Entry{id, now}).first;
  } else if (now - it->second.taken_at > kRefresh) {
    const int32_t id =
        getter_->GetSnapshot(frame, object.xmin, object.ymin, object.xmax, object.ymax);
    it->second = Entry{id, now};
  }
  return it->second.snapshot_id;
}

void SnapshotIdCache::Remove(const std::vector<std::unordered_set<uint32_t>>& ended) {
  for (const auto& ids : ended) {
    for (uint32_t id : ids) entries_.erase(static_cast<int32_t>(id));
  }
}

uint8_t ConvertClassId(int32_t class_id) {
  if (dva::IsKnownClass(class_id)) return static_cast<uint8_t>(dva::ClassIndex(class_id));
  MIRVANE_LOG(kLogErr, "Unexpect class_id [%d]\n", class_id);
  return 0;
}

std::vector<EventObject> Convert(SnapshotIdCache& cache, const TrackResult& result,
                                 const std::vector<std::vector<bool>>& pv_triggers,
                                 const std::vector<std::vector<uint8_t>>& int_triggers,
                                 const VENDOR_AI_BUF& frame) {
  std::vector<WorkItem> work;
  for (size_t i = 0; i < result.objects.size(); ++i) {
    for (size_t j = 0; j < result.objects[i].size(); ++j) {
      work.push_back(
          WorkItem{&result.objects[i][j], At(pv_triggers, i, j), At(int_triggers, i, j)});
    }
  }
  std::sort(work.begin(), work.end(),
            [](const WorkItem& a, const WorkItem& b) { return a.object->score > b.object->score; });
  if (work.size() > static_cast<size_t>(result_sender::kEventMaxNum)) {
    MIRVANE_LOG(kLogDebug, "Detection num [%d] over max [%d], truncated low confidence ones.\n",
                static_cast<int>(work.size()), result_sender::kEventMaxNum);
    work.resize(result_sender::kEventMaxNum);
  }

  std::vector<EventObject> objects;
  objects.reserve(work.size());
  for (const WorkItem& item : work) {
    const TrackedObject& o = *item.object;
    EventObject event;
    event.confidence = o.score;
    event.box[0] = o.xmin;
    event.box[1] = o.ymin;
    event.box[2] = o.xmax;
    event.box[3] = o.ymax;
    event.pv_trigger = item.pv_trigger;
    event.int_trigger = item.int_trigger;
    event.tracking_id = static_cast<int32_t>(o.tracking_id);
    event.snapshot_id = static_cast<uint8_t>(cache.Get(event.tracking_id, frame, o) & 0xFF);
    event.class_code = ConvertClassId(o.class_id);
    objects.push_back(event);
    MIRVANE_LOG(kLogDebug,
                "Tracking_id: %d, Class: %d, Conf: %f, Pv_trigger: %s, Int_trigger: %d, "
                "Snapshot_id: %d\n\n",
                event.tracking_id, event.class_code, static_cast<double>(event.confidence),
                event.pv_trigger ? "true" : "false", event.int_trigger, event.snapshot_id);
  }
  cache.Remove(result.removed_ids);
  return objects;
}

}  // namespace mirvane

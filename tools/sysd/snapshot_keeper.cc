#include "snapshot_keeper.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace mirvane {
namespace sysd {

SnapshotKeeper::SnapshotKeeper(std::string source_prefix, std::string directory)
    : source_prefix_(std::move(source_prefix)), directory_(std::move(directory)) {}

std::string SnapshotKeeper::Keep(const Event& event) {
  namespace fs = std::filesystem;
  std::string note;
  for (const EventObject& object : event.objects) {
    if (object.snapshot_id == 0) continue;
    const auto known = last_snapshot_.find(object.tracking_id);
    if (known != last_snapshot_.end() && known->second == object.snapshot_id) continue;
    if (kept_ >= kMaxFiles) {
      if (!full_noted_) note = "kept " + std::to_string(kMaxFiles) + " snapshots; keeping no more";
      full_noted_ = true;
      return note;
    }
    if (last_snapshot_.size() >= kMaxTracks) last_snapshot_.clear();
    last_snapshot_[object.tracking_id] = object.snapshot_id;
    const fs::path source = source_prefix_ + std::to_string(object.snapshot_id);
    const fs::path copy = fs::path(directory_) / (std::to_string(object.tracking_id) + "-" +
                                                  std::to_string(event.timestamp) + ".jpg");
    std::error_code failure;
    if (!fs::exists(source, failure)) continue;
    if (fs::copy_file(source, copy, fs::copy_options::overwrite_existing, failure)) {
      ++kept_;
    } else if (note.empty()) {
      note = "cannot keep " + source.string() + ": " + failure.message();
    }
  }
  return note;
}

}  // namespace sysd
}  // namespace mirvane

// Keeps copies of the daemon's snapshot files for later viewing (the report's gallery). The
// daemon reuses 150 snapshot file names round robin, so a picture is copied when an event first
// names it for a track: as "<tracking id>-<event timestamp us>.jpg" in the keeper's directory.
//
// Owns its bookkeeping only. Limits, since tracking ids come from a socket peer: at most
// kMaxTracks tracks remembered (then forgotten all at once) and at most kMaxFiles files kept (then
// keeping stops, once noted). Single-threaded: the stand-in's event loop.
#ifndef MIRVANE_TOOLS_SYSD_SNAPSHOT_KEEPER_H
#define MIRVANE_TOOLS_SYSD_SNAPSHOT_KEEPER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "protocol.h"

namespace mirvane {
namespace sysd {

class SnapshotKeeper {
 public:
  static constexpr size_t kMaxTracks = 4096;
  static constexpr size_t kMaxFiles = 20000;

  // source_prefix + snapshot id names a snapshot file; copies go to directory (which must exist).
  SnapshotKeeper(std::string source_prefix, std::string directory);

  // Copies the snapshots the event names for the first time. Returns a note for the operator
  // when something could not be kept (empty otherwise); a missing file is skipped silently
  // (the daemon may not have written one yet).
  std::string Keep(const Event& event);

  size_t kept() const { return kept_; }

 private:
  std::string source_prefix_;
  std::string directory_;
  std::unordered_map<int32_t, uint8_t> last_snapshot_;  // by tracking id
  size_t kept_ = 0;
  bool full_noted_ = false;
};

}  // namespace sysd
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_SYSD_SNAPSHOT_KEEPER_H

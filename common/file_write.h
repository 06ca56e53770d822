// Writing small files whole (the daemon's state files and snapshots in /tmp, the simulation's
// parameter store, the host model files), where anyone may plant a link at a fixed path.
//
// Pure functions without state: any thread may call them.
#ifndef MIRVANE_COMMON_FILE_WRITE_H
#define MIRVANE_COMMON_FILE_WRITE_H

#include <string>

namespace mirvane {

// Replaces path by contents, mode 0644, atomically: the text goes to a new temporary file beside
// path (a unique name, created exclusively), which is then renamed over path. The rename replaces
// whatever entry path is, a planted symbolic link included, without following it; readers see the
// old file or the whole new one, never a truncated one. False on any failure (errno tells which),
// with path left as it was and no temporary file left behind.
bool WriteFileAtomically(const std::string& path, const std::string& contents);

}  // namespace mirvane

#endif  // MIRVANE_COMMON_FILE_WRITE_H

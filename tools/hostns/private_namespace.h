// Private mount namespace for host runs and tests of the daemon.
//
// The daemon uses fixed paths ("/tmp/ipc-system", "/tmp/log/", "/tmp/mirvane_blkid",
// "/etc/tolvern-ai/..."). To run it on a PC without root, without touching the machine's real
// /tmp and /etc, and side by side with other runs, the calling process enters a new user and mount
// namespace (or, as root without user namespaces, a mount namespace only), with its own SysV IPC
// namespace (the shared log segment has a fixed key), and mounts:
//   - a fresh tmpfs on /tmp, into which chosen paths of the real /tmp (a build tree that happens to
//     live there) are bound back at their own paths;
//   - optionally, an overlay on /etc whose changes live in the private /tmp, so that directories
//     such as /etc/tolvern-ai can be provided without writing to the real /etc;
//   - optionally, overlays that show the files of a host tree over a directory (an installed
//     staging tree over /usr/local and /etc, say), again with changes in the private /tmp;
//   - optionally, fresh empty tmpfs directories (a private /var/run, say).
//
// EnterPrivateNamespace must be called while the process is single-threaded.
#ifndef MIRVANE_TOOLS_HOSTNS_PRIVATE_NAMESPACE_H
#define MIRVANE_TOOLS_HOSTNS_PRIVATE_NAMESPACE_H

#include <string>
#include <utility>
#include <vector>

namespace mirvane {
namespace hostns {

struct NamespaceOptions {
  // Paths of the real /tmp (or below it) that stay visible at the same path.
  std::vector<std::string> keep_paths;
  // Directories to make visible inside /etc: {name below /etc, host directory}. The host
  // directory is bound over /etc/<name> (created in the overlay when missing).
  std::vector<std::pair<std::string, std::string>> etc_binds;
  // {directory, host tree}: the tree's files shown over the directory, whose own files stay
  // visible below them. An overlay of /etc comes before the etc_binds.
  std::vector<std::pair<std::string, std::string>> overlays;
  // Directories that get a fresh, empty tmpfs (after the overlays).
  std::vector<std::string> empty_dirs;
};

// Enters the namespace and mounts as described. Returns false with a reason in *error when the
// machine allows no such namespace or a mount fails; the process is then unchanged only if the
// failure came before the unshare.
bool EnterPrivateNamespace(const NamespaceOptions& options, std::string* error);

}  // namespace hostns
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_HOSTNS_PRIVATE_NAMESPACE_H

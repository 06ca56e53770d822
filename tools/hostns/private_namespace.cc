#include "private_namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace mirvane {
namespace hostns {
namespace {

std::string Errno(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

bool WriteFile(const std::string& path, const std::string& text) {
  int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return ok;
}

bool MakeDirs(const std::string& path) {
  for (size_t pos = 1; pos <= path.size(); ++pos) {
    if (pos == path.size() || path[pos] == '/') {
      std::string part = path.substr(0, pos);
      if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
  }
  return true;
}

// Canonical absolute path of an existing file or directory; empty when it does not exist.
std::string RealPath(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) return std::string();
  std::string result(resolved);
  free(resolved);
  return result;
}

bool Unshare(std::string* error) {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWIPC) == 0) {
    // Map the caller to root inside, so that it may mount.
    WriteFile("/proc/self/setgroups", "deny");
    if (!WriteFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
        !WriteFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n")) {
      *error = Errno("cannot write the user namespace's id maps");
      return false;
    }
    return true;
  }
  const int user_ns_errno = errno;
  if (uid == 0 && unshare(CLONE_NEWNS | CLONE_NEWIPC) == 0) return true;
  errno = user_ns_errno;
  *error = Errno("cannot create a private user and mount namespace");
  return false;
}

// Mounts a writable overlay on dir: tree's files (none when tree is empty) over dir's own, with
// the changes kept in the private /tmp. index tells the overlays' change directories apart.
bool MountOverlay(const std::string& dir, const std::string& tree, size_t index,
                  std::string* error) {
  const std::string base = "/tmp/.mirvane-ns/overlay" + std::to_string(index);
  const std::string upper = base + "/upper";
  const std::string work = base + "/work";
  if (!MakeDirs(upper) || !MakeDirs(work)) {
    *error = Errno("cannot create the overlay directories of " + dir);
    return false;
  }
  const std::string lower = tree.empty() ? dir : tree + ":" + dir;
  const std::string data = "lowerdir=" + lower + ",upperdir=" + upper + ",workdir=" + work;
  if (mount("mirvane-overlay", dir.c_str(), "overlay", 0, data.c_str()) != 0) {
    *error = Errno("cannot mount an overlay on " + dir);
    return false;
  }
  return true;
}

}  // namespace

bool EnterPrivateNamespace(const NamespaceOptions& options, std::string* error) {
  std::string ignored;
  if (error == nullptr) error = &ignored;

  // Resolve everything that lives in the real /tmp before it is hidden.
  std::vector<std::string> keep;
  for (const std::string& path : options.keep_paths) {
    std::string real = RealPath(path);
    if (real.rfind("/tmp/", 0) == 0) keep.push_back(real);
  }
  std::vector<std::pair<std::string, std::string>> etc_binds;
  for (const auto& bind : options.etc_binds) {
    std::string real = RealPath(bind.second);
    if (real.empty()) {
      *error = "no such directory: " + bind.second;
      return false;
    }
    etc_binds.emplace_back(bind.first, real);
  }
  std::vector<std::pair<std::string, std::string>> overlays;
  for (const auto& overlay : options.overlays) {
    std::string real = RealPath(overlay.second);
    // Overlay mount options separate directories with ':' and options with ','.
    if (real.empty() || real.find_first_of(":,") != std::string::npos) {
      *error = "not a directory usable in an overlay: " + overlay.second;
      return false;
    }
    overlays.emplace_back(overlay.first, real);
  }

  if (!Unshare(error)) return false;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    *error = Errno("cannot make the mounts private");
    return false;
  }
  // The real /tmp stays reachable through this descriptor while its paths are bound back.
  int old_tmp = open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (old_tmp < 0) {
    *error = Errno("cannot open /tmp");
    return false;
  }
  if (mount("mirvane-tmp", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
    *error = Errno("cannot mount a private /tmp");
    close(old_tmp);
    return false;
  }
  const std::string old_root = "/proc/self/fd/" + std::to_string(old_tmp);
  for (const std::string& path : keep) {
    const std::string relative = path.substr(std::strlen("/tmp/"));
    struct stat st;
    if (stat(path.c_str(), &st) == 0) continue;  // already visible through an earlier bind
    if (!MakeDirs(path) || mount((old_root + "/" + relative).c_str(), path.c_str(), nullptr,
                                 MS_BIND | MS_REC, nullptr) != 0) {
      *error = Errno("cannot keep " + path + " visible");
      close(old_tmp);
      return false;
    }
  }
  close(old_tmp);

  // /etc gets an overlay as soon as something is to be shown in it.
  bool etc_overlaid = false;
  for (const auto& overlay : overlays) etc_overlaid = etc_overlaid || overlay.first == "/etc";
  if (!etc_binds.empty() && !etc_overlaid) overlays.emplace_back("/etc", std::string());
  for (size_t i = 0; i < overlays.size(); ++i) {
    if (!MountOverlay(overlays[i].first, overlays[i].second, i, error)) return false;
  }
  for (const auto& bind : etc_binds) {
    const std::string target = "/etc/" + bind.first;
    if (!MakeDirs(target) ||
        mount(bind.second.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
      *error = Errno("cannot bind " + bind.second + " to " + target);
      return false;
    }
  }
  for (const std::string& dir : options.empty_dirs) {
    if (mount("mirvane-empty", dir.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) {
      *error = Errno("cannot mount an empty tmpfs on " + dir);
      return false;
    }
  }
  return true;
}

}  // namespace hostns
}  // namespace mirvane

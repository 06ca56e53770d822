// mirvane-ns: runs a command in a private mount namespace with its own /tmp (and, on request, its
// own directories under /etc), so that the daemon and its peers can run on a PC without root and
// without touching the machine's real /tmp and /etc.
//
//   mirvane-ns [--keep PATH]... [--etc NAME=DIR]... [--overlay DIR=TREE]... [--empty DIR]...
//              -- COMMAND [ARG]...
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "private_namespace.h"

namespace {

int Usage(const char* self) {
  std::fprintf(stderr,
               "usage: %s [--keep PATH]... [--etc NAME=DIR]... [--overlay DIR=TREE]...\n"
               "          [--empty DIR]... -- COMMAND [ARG]...\n"
               "  --keep PATH         keep PATH of the real /tmp visible at the same path\n"
               "  --etc NAME=DIR      show host directory DIR as /etc/NAME\n"
               "  --overlay DIR=TREE  show the files of host directory TREE over DIR\n"
               "                      (e.g. /usr/local=stage/usr/local, /etc=stage/etc)\n"
               "  --empty DIR         give DIR a fresh empty tmpfs (e.g. /var/run)\n",
               self);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  mirvane::hostns::NamespaceOptions options;
  int i = 1;
  for (; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--") {
      ++i;
      break;
    }
    if (arg == "--keep" && i + 1 < argc) {
      options.keep_paths.push_back(argv[++i]);
    } else if (arg == "--etc" && i + 1 < argc) {
      const std::string value = argv[++i];
      const size_t eq = value.find('=');
      if (eq == std::string::npos || eq == 0 || value.find('/') < eq) return Usage(argv[0]);
      options.etc_binds.emplace_back(value.substr(0, eq), value.substr(eq + 1));
    } else if (arg == "--overlay" && i + 1 < argc) {
      const std::string value = argv[++i];
      const size_t eq = value.find('=');
      if (eq == std::string::npos || value[0] != '/') return Usage(argv[0]);
      options.overlays.emplace_back(value.substr(0, eq), value.substr(eq + 1));
    } else if (arg == "--empty" && i + 1 < argc && argv[i + 1][0] == '/') {
      options.empty_dirs.push_back(argv[++i]);
    } else {
      return Usage(argv[0]);
    }
  }
  if (i >= argc) return Usage(argv[0]);
  // The working directory and the command itself stay visible.
  char cwd[4096];
  if (getcwd(cwd, sizeof(cwd)) != nullptr) options.keep_paths.push_back(cwd);

  std::string error;
  if (!mirvane::hostns::EnterPrivateNamespace(options, &error)) {
    std::fprintf(stderr, "mirvane-ns: %s\n", error.c_str());
    return 125;
  }
  if (getcwd(cwd, sizeof(cwd)) != nullptr && chdir(cwd) != 0) {
    std::perror("mirvane-ns: chdir");
  }
  execvp(argv[i], argv + i);
  std::fprintf(stderr, "mirvane-ns: cannot run %s: %s\n", argv[i], std::strerror(errno));
  return 127;
}

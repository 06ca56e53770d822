// mirvane-ns: runs a command in a private mount namespace with its own /tmp (and, on request, its
// own directories under /etc), so that the daemon and its peers can run on a PC without root and
// without touching the machine's real /tmp and /etc.
//
//   mirvane-ns [--keep PATH]... [--etc NAME=DIR]... [--overlay DIR=TREE]... [--empty DIR]...
//              -- COMMAND [ARG]...
//   mirvane-ns --help
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "private_namespace.h"

namespace {

int Usage(FILE* out, const char* self) {
  std::fprintf(out,
               "usage: %s [--keep PATH]... [--etc NAME=DIR]... [--overlay DIR=TREE]...\n"
               "          [--empty DIR]... -- COMMAND [ARG]...\n"
               "  --keep PATH         keep PATH of the real /tmp visible at the same path\n"
               "  --etc NAME=DIR      show host directory DIR as /etc/NAME\n"
               "  --overlay DIR=TREE  show the files of host directory TREE over DIR\n"
               "                      (e.g. /usr/local=stage/usr/local, /etc=stage/etc)\n"
               "  --empty DIR         give DIR a fresh empty tmpfs (e.g. /var/run)\n"
               "  --help              print this text\n",
               self);
  return out == stdout ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  mirvane::hostns::NamespaceOptions options;
  enum { kKeep = 1, kEtc, kOverlay, kEmpty, kHelp };
  static const option kOptions[] = {{"keep", required_argument, nullptr, kKeep},
                                    {"etc", required_argument, nullptr, kEtc},
                                    {"overlay", required_argument, nullptr, kOverlay},
                                    {"empty", required_argument, nullptr, kEmpty},
                                    {"help", no_argument, nullptr, kHelp},
                                    {nullptr, 0, nullptr, 0}};
  opterr = 0;  // the usage alone answers a bad option
  int opt;
  // "+": the options end at the first word that is not one; the command's own are left alone.
  while ((opt = getopt_long(argc, argv, "+", kOptions, nullptr)) != -1) {
    const std::string value = optarg != nullptr ? optarg : "";
    // Every option but --help takes a value, and "--" is where the command starts, not one.
    if (opt != kHelp && opt != '?' && (value.empty() || value == "--")) {
      return Usage(stderr, argv[0]);
    }
    const size_t eq = value.find('=');
    switch (opt) {
      case kKeep:
        options.keep_paths.push_back(value);
        break;
      case kEtc:
        if (eq == std::string::npos || eq == 0 || value.find('/') < eq) {
          return Usage(stderr, argv[0]);
        }
        options.etc_binds.emplace_back(value.substr(0, eq), value.substr(eq + 1));
        break;
      case kOverlay:
        if (eq == std::string::npos || value[0] != '/') return Usage(stderr, argv[0]);
        options.overlays.emplace_back(value.substr(0, eq), value.substr(eq + 1));
        break;
      case kEmpty:
        if (value[0] != '/') return Usage(stderr, argv[0]);
        options.empty_dirs.push_back(value);
        break;
      case kHelp:
        return Usage(stdout, argv[0]);
      default:
        return Usage(stderr, argv[0]);
    }
  }
  // The command must follow "--".
  if (optind >= argc || optind < 2 || std::strcmp(argv[optind - 1], "--") != 0) {
    return Usage(stderr, argv[0]);
  }
  const int i = optind;
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

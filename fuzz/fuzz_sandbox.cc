#include "fuzz_sandbox.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "debugLog.h"
#include "private_namespace.h"

namespace mirvane {
namespace fuzz {

void EnterFuzzSandbox(int argc, char** argv) {
  hostns::NamespaceOptions options;
  char cwd[PATH_MAX];
  if (getcwd(cwd, sizeof(cwd)) != nullptr) options.keep_paths.emplace_back(cwd);
  // Corpus directories, inputs to replay and "-flag=path" values (artifact prefix, dictionary).
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    const size_t eq = arg.find('=');
    const bool flag = arg[0] == '-';
    if (flag && eq != std::string::npos) arg = arg.substr(eq + 1);
    struct stat st;
    // A flag's value may be a prefix of paths to come (-artifact_prefix=DIR/name-): its directory.
    if (flag && stat(arg.c_str(), &st) != 0 && arg.find('/') != std::string::npos) {
      arg = arg.substr(0, arg.rfind('/') + 1);
    }
    if (!arg.empty() && arg[0] != '-' && stat(arg.c_str(), &st) == 0) {
      options.keep_paths.push_back(arg);
    }
  }
  std::string error;
  if (!hostns::EnterPrivateNamespace(options, &error)) {
    std::fprintf(stderr,
                 "cannot enter a private namespace (%s); the fuzz targets need unprivileged user "
                 "namespaces or root\n",
                 error.c_str());
    std::exit(1);
  }
  if (mkdir(DEBUG_LOG_DIR, 0755) != 0 && errno != EEXIST) {
    std::perror("mkdir " DEBUG_LOG_DIR);
    std::exit(1);
  }
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null < 0 || dup2(null, STDOUT_FILENO) < 0) {
    std::perror("/dev/null");
    std::exit(1);
  }
  close(null);
}

void TrimDebugLog() {
  (void)truncate(DEBUG_LOG_PATH, 0);
}

}  // namespace fuzz
}  // namespace mirvane

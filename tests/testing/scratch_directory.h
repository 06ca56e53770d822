// A directory of one test's own, for suites that run in the machine's environment.
#ifndef MIRVANE_TESTS_TESTING_SCRATCH_DIRECTORY_H
#define MIRVANE_TESTS_TESTING_SCRATCH_DIRECTORY_H

#include <string>

namespace mirvane {
namespace testing {

// Makes a new directory with a unique name under $TMPDIR (or /tmp); the destructor removes it
// with everything in it. Owns the directory; one thread.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  // The path of name in the directory.
  std::string Path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_SCRATCH_DIRECTORY_H

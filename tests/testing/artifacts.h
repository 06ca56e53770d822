// Files that a test leaves for comparison across builds. scripts/test.sh clears <build>/artifacts/
// before a run and requires the native and the armhf build to leave the same files there, byte for
// byte: what goes on the wire or to disk (message bytes, event payloads, snapshots) must not
// depend on the CPU.
#ifndef MIRVANE_TESTS_TESTING_ARTIFACTS_H
#define MIRVANE_TESTS_TESTING_ARTIFACTS_H

#include <string>

namespace mirvane {
namespace testing {

// Writes bytes to <build>/artifacts/<name> (name may hold subfolders); false when it cannot.
bool SaveArtifact(const std::string& name, const std::string& bytes);

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_ARTIFACTS_H

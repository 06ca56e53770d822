// Files and settings around a daemon run on the host simulation, for the suites that start the
// daemon binary inside their private /tmp.
#ifndef MIRVANE_TESTS_TESTING_DAEMON_FILES_H
#define MIRVANE_TESTS_TESTING_DAEMON_FILES_H

#include <string>
#include <vector>

namespace mirvane {
namespace testing {

// Writes text to path, creating the folders on the way; a failure fails the test.
void WriteText(const std::string& path, const std::string& text);

// Sets a key of the parameter store to a value given as JSON text; a failure fails the test.
void SetSetting(const std::string& key, const std::string& json_value);

// The model id table ("/tmp/workspace/model/model_id.config") naming model_path and the network's
// usual input and output ids.
std::string ModelIdTable(const std::string& model_path);

// The lines of text that contain part.
std::vector<std::string> LinesContaining(const std::string& text, const std::string& part);

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_DAEMON_FILES_H

// The daemon's settings and process state: the instance lock at a fixed path, the score
// thresholds read from the parameter store, and the configuration thread raising the reload flag
// on real changes under "Custom.Dva". In a private namespace: the lock and the host simulation's
// parameter store live in /tmp.
#include <gtest/gtest.h>
#include <jansson.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "bin/daemon_threads.h"
#include "bin/instance_lock.h"
#include "bin/process_flags.h"
#include "bin/threshold.h"
#include "mirvane_sim.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ChildResult;
using testing::RunInChild;
using testing::WaitUntil;

// Stores value (JSON text) under key.
void Store(const char* key, const char* json_text) {
  json_t* value = json_loads(json_text, JSON_DECODE_ANY, nullptr);
  ASSERT_NE(value, nullptr) << json_text;
  ASSERT_EQ(mirvane_param_set(key, value), 0);
  json_decref(value);
}

TEST(InstanceLock, TheFirstHolderKeepsItAndALinkIsRefused) {
  unlink("/tmp/test.lock");
  {
    const InstanceLock first("/tmp/test.lock");
    EXPECT_EQ(first.state(), InstanceLock::State::kHeld);
    const InstanceLock second("/tmp/test.lock");
    EXPECT_EQ(second.state(), InstanceLock::State::kHeldByAnother);
  }
  EXPECT_EQ(InstanceLock("/tmp/test.lock").state(), InstanceLock::State::kHeld)
      << "free again once its holder is gone";
  unlink("/tmp/test.lock");
  ASSERT_EQ(symlink("/tmp/victim.lock", "/tmp/test.lock"), 0);
  const InstanceLock linked("/tmp/test.lock");
  EXPECT_EQ(linked.state(), InstanceLock::State::kFailed);
  EXPECT_EQ(linked.error(), ELOOP);
  EXPECT_EQ(access("/tmp/victim.lock", F_OK), -1);
}

TEST(Threshold, ReadsIntegerPercentsAndZeroForAnythingElse) {
  mirvane_param_delete("Custom.Dva");
  Threshold thresholds;
  EXPECT_FLOAT_EQ(thresholds.detection, 0.2f) << "defaults until the first reload";
  Store("Custom.Dva.Threshold.Detection", "35");
  Store("Custom.Dva.Threshold.Tracking", "\"60\"");
  thresholds.ReloadFromPgo();
  EXPECT_FLOAT_EQ(thresholds.detection, 0.35f);
  EXPECT_FLOAT_EQ(thresholds.tracking, 0.0f) << "a text value reads as 0";
  mirvane_param_delete("Custom.Dva.Threshold.Detection");
  Store("Custom.Dva.Threshold.Tracking", "150");
  thresholds.ReloadFromPgo();
  EXPECT_FLOAT_EQ(thresholds.detection, 0.0f) << "a missing value reads as 0, not the default";
  EXPECT_FLOAT_EQ(thresholds.tracking, 1.5f) << "no range check";
  Store("Custom.Dva.Threshold.Detection", "4294967331");  // 2^32 + 35, not 35
  thresholds.ReloadFromPgo();
  EXPECT_FLOAT_EQ(thresholds.detection, 0.0f) << "beyond an int reads as 0, as a non-integer";
}

// Runs the configuration thread in a child process (the flags are process-wide) and applies
// change(n); exits 0 when the flag ends as expected and the thread ends after the run flag clears.
// The observer learns the store's values when it registers, so a change made before that is no
// change to it: a change that should raise the flag is made again, with the next n, until it does.
ChildResult ObserveChange(void (*change)(int n), bool expect_reload) {
  return RunInChild([change, expect_reload] {
    Store("Custom.Dva", "{\"Threshold\": {\"Detection\": 20}}");
    Store("Other.Key", "1");
    g_reload_config = 0;
    auto done = std::async(std::launch::async, RunConfigObserver);
    std::this_thread::sleep_for(milliseconds(300));  // the observer is registered, mostly
    bool reloaded = false;
    for (int n = 0; n < (expect_reload ? 10 : 1) && !reloaded; ++n) {
      change(n);
      reloaded = WaitUntil([] { return g_reload_config.load() == 1; }, seconds(2));
    }
    g_running = 0;
    if (done.wait_for(seconds(5)) != std::future_status::ready) _exit(20);
    _exit(reloaded == expect_reload ? 0 : 10);
  });
}

// A change under the watched key raises the flag (the end-to-end reload run checks that too).
TEST(ConfigObserver, RaisesTheReloadFlagOnlyOnARealChangeUnderTheWatchedKey) {
  EXPECT_EQ(
      ObserveChange(
          [](int n) { Store("Custom.Dva.Threshold.Detection", std::to_string(35 + n).c_str()); },
          true)
          .exit_code,
      0);
  EXPECT_EQ(ObserveChange([](int) { Store("Other.Key", "2"); }, false).exit_code, 0);
  EXPECT_EQ(
      ObserveChange([](int) { Store("Custom.Dva.Threshold.Detection", "20"); }, false).exit_code,
      0);
}

}  // namespace
}  // namespace mirvane

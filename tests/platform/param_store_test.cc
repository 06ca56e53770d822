// The simulated parameter store through its C API: dotted keys, the parameter object, the
// observer in a libev loop, and the mirvane-param tool. (That the observer ignores changes
// elsewhere and rewrites of the same value is checked through the daemon's configuration thread.)
#include <ev.h>
#include <gtest/gtest.h>
#include <jansson.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "mirvane_sim.h"
#include "param_observer.h"
#include "pgo.h"
#include "sim_test_support.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::Subprocess;
using testing::UseSimSettings;

const char kStore[] = "/tmp/mirvane-sim/params.json";

void Set(const char* key, const char* json) {
  json_t* value = json_loads(json, JSON_DECODE_ANY, nullptr);
  ASSERT_NE(value, nullptr) << json;
  ASSERT_EQ(mirvane_param_set(key, value), 0) << key;
  json_decref(value);
}

// The value of one key as the daemon reads it: a parameter object with that key, run once.
std::string Fetch(const char* key) {
  pgo_t* pgo = pgo_new();
  pgo_push_key(pgo, key);
  std::string text = "(run failed)";
  if (pgo_run(pgo) == 0) {
    json_t* value = pgo_get_obj(pgo, key);
    char* dumped = value ? json_dumps(value, JSON_COMPACT | JSON_ENCODE_ANY) : nullptr;
    text = dumped ? dumped : "(none)";
    free(dumped);
  }
  pgo_free(pgo);
  return text;
}

class ParamStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    UseSimSettings("{}");
    mkdir("/tmp/mirvane-sim", 0755);
    std::remove(kStore);
  }
};

TEST_F(ParamStoreTest, DottedKeysResolveInsideStoredObjects) {
  Set("Custom.Dva", R"({"Threshold": {"Detection": 35, "Tracking": 60}})");
  EXPECT_EQ(Fetch("Custom.Dva.Threshold"), R"({"Detection":35,"Tracking":60})");
  EXPECT_EQ(Fetch("Custom.Dva.Threshold.Detection.Deeper"), "(none)");
  Set("Custom.Dva.ObjectDetection", R"({"Enable": true})");  // creates the member
  EXPECT_EQ(Fetch("Custom.Dva.ObjectDetection.Enable"), "true");
  EXPECT_EQ(Fetch("Custom.Dva.Threshold.Tracking"), "60");  // siblings stay
  json_t* loaded = json_loads(R"({"Vendor.Cam": {"Mode.Night": 2}})", 0, nullptr);
  ASSERT_EQ(mirvane_param_load(loaded), 0);
  json_decref(loaded);
  EXPECT_EQ(Fetch("Vendor.Cam.Mode.Night"), "2");  // members whose names hold dots
}

TEST_F(ParamStoreTest, TheObjectHandsOutOnlyTheKeysPushedAsOfItsLastRun) {
  Set("Custom.Dva.Threshold.Detection", "35");
  pgo_t* pgo = pgo_new();
  ASSERT_EQ(pgo_push_key(pgo, "Custom.Dva.Threshold"), 0);
  EXPECT_EQ(pgo_push_key(pgo, ""), -1);
  ASSERT_EQ(pgo_run(pgo), 0);
  Set("Custom.Dva.Threshold.Detection", "50");
  EXPECT_EQ(
      json_integer_value(json_object_get(pgo_get_obj(pgo, "Custom.Dva.Threshold"), "Detection")),
      35);
  EXPECT_EQ(pgo_get_obj(pgo, "Custom.Dva"), nullptr);  // not pushed
  pgo_free(pgo);
}

TEST_F(ParamStoreTest, AnUnreadableStoreFailsTheRun) {
  std::ofstream(kStore) << "{ half a wri";
  EXPECT_EQ(Fetch("Custom.Dva"), "(run failed)");
  EXPECT_EQ(mirvane_param_delete("Custom.Dva"), -1);
  std::remove(kStore);
  EXPECT_EQ(Fetch("Custom.Dva"), "(none)");  // no store yet: nothing stored
  EXPECT_EQ(mirvane_param_delete("Custom.Dva"), -2);
}

int g_notices = 0;

// Runs a libev loop with an observer of "Custom.Dva" as the daemon's configuration thread does,
// applies change and returns the number of notices seen within 5 s.
int NoticesAfter(void (*change)()) {
  struct ev_loop* loop = ev_loop_new(EVFLAG_NOENV | EVBACKEND_EPOLL);
  param_observer_t* observer = param_observer_new(loop);
  pgo_t* pgo = pgo_new();
  pgo_push_key(pgo, "Custom.Dva");
  param_observer_register_pgo(observer, pgo);
  pgo_free(pgo);
  ev_io io;
  ev_io_init(
      &io,
      [](struct ev_loop*, ev_io* w, int) {
        param_observer_process(
            static_cast<param_observer_t*>(w->data), w->fd,
            [](int, const char*, json_t*, void*) { ++g_notices; }, nullptr);
      },
      param_observer_get_handle(observer), EV_READ);
  io.data = observer;
  ev_io_start(loop, &io);
  g_notices = 0;
  change();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (g_notices == 0 && std::chrono::steady_clock::now() < end) ev_run(loop, EVRUN_NOWAIT);
  for (int i = 0; i < 3; ++i) ev_run(loop, EVRUN_NOWAIT);
  ev_io_stop(loop, &io);
  mirvane_param_observer_free(observer);
  ev_loop_destroy(loop);
  return g_notices;
}

TEST_F(ParamStoreTest, TheObserverNoticesChangesAndDeletionsUnderTheWatchedKey) {
  Set("Custom.Dva.Threshold.Tracking", "55");
  EXPECT_GE(NoticesAfter([] {  // two quick changes give at least one notice
              Set("Custom.Dva.Threshold.Tracking", "65");
              Set("Custom.Dva.Threshold.Tracking", "70");
            }),
            1);
  EXPECT_EQ(NoticesAfter([] { ASSERT_EQ(mirvane_param_delete("Custom.Dva"), 0); }), 1);
}

// Runs the tool and returns its standard output; *code gets its exit code.
std::string RunTool(const std::vector<std::string>& args, int* code) {
  std::vector<std::string> argv = {MIRVANE_PARAM_TOOL};
  argv.insert(argv.end(), args.begin(), args.end());
  Subprocess tool(argv);
  EXPECT_TRUE(tool.Wait(std::chrono::seconds(10)));
  *code = tool.result().exit_code;
  return tool.result().out;
}

TEST_F(ParamStoreTest, TheToolRoundTripsValuesAndExitsWithItsCodes) {
  int code = -1;
  const struct {
    const char *key, *argument, *stored;
  } values[] = {
      {"Custom.Dva.Threshold.Detection", "35", "35"},
      {"Custom.Dva.Name", "\"front door\"", "\"front door\""},
      {"Custom.Dva.Label", "plain text", "\"plain text\""},
      {"Custom.Dva.Zone", R"({"Enable": true, "Points": [[0.25, 0.5]]})",
       R"({"Enable":true,"Points":[[0.25,0.5]]})"},
  };
  for (const auto& v : values) {
    RunTool({"set", v.key, v.argument}, &code);
    EXPECT_EQ(code, 0) << v.key;
    RunTool({"set", v.key, RunTool({"get", v.key}, &code)}, &code);  // get prints what set takes
    EXPECT_EQ(Fetch(v.key), v.stored);
  }
  std::ofstream("/tmp/defaults.json") << R"({"Custom.Dva.Threshold": {"Tracking": 60}})";
  const std::pair<std::vector<std::string>, int> codes[] = {
      {{"delete", "Custom.Dva.Name"}, 0},
      {{"get", "Custom.Dva.Name"}, 1},
      {{"delete", "Custom.Dva.Name"}, 1},
      {{"load", "/tmp/defaults.json"}, 0},
      {{"frobnicate"}, 2},
  };
  for (const auto& c : codes) {
    RunTool(c.first, &code);
    EXPECT_EQ(code, c.second) << c.first[0];
  }
  EXPECT_EQ(Fetch("Custom.Dva.Threshold"), R"({"Tracking":60})");
}

}  // namespace
}  // namespace mirvane

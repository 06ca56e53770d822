// The simulated parameter store through its C API: dotted keys, the parameter object, the
// observer in a libev loop (real changes only), and the mirvane-param tool.
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
  EXPECT_EQ(Fetch("Custom.Dva.Threshold.Detection"), "35");
  EXPECT_EQ(Fetch("Custom.Dva.Threshold"), R"({"Detection":35,"Tracking":60})");
  EXPECT_EQ(Fetch("Custom.Dva.Threshold.Missing"), "(none)");
  EXPECT_EQ(Fetch("Custom.Dva.Threshold.Detection.Deeper"), "(none)");
  Set("Custom.Dva.ObjectDetection", R"({"Enable": true})");  // creates the member
  EXPECT_EQ(Fetch("Custom.Dva.ObjectDetection.Enable"), "true");
  EXPECT_EQ(Fetch("Custom.Dva.Threshold.Tracking"), "60");  // siblings stay

  // Members whose own names hold dots are found too.
  json_t* loaded = json_loads(R"({"Vendor.Cam": {"Mode.Night": 2}})", 0, nullptr);
  ASSERT_EQ(mirvane_param_load(loaded), 0);
  json_decref(loaded);
  EXPECT_EQ(Fetch("Vendor.Cam.Mode.Night"), "2");
}

TEST_F(ParamStoreTest, TheObjectHandsOutOnlyTheKeysPushedAndRun) {
  Set("Custom.Dva.Threshold.Detection", "35");
  pgo_t* pgo = pgo_new();
  ASSERT_EQ(pgo_push_key(pgo, "Custom.Dva.Threshold.Detection"), 0);
  EXPECT_EQ(pgo_push_key(pgo, ""), -1);
  EXPECT_EQ(pgo_get_obj(pgo, "Custom.Dva.Threshold.Detection"), nullptr);  // not run yet
  ASSERT_EQ(pgo_run(pgo), 0);
  json_t* value = pgo_get_obj(pgo, "Custom.Dva.Threshold.Detection");
  EXPECT_EQ(json_integer_value(value), 35);
  EXPECT_EQ(pgo_get_obj(pgo, "Custom.Dva"), nullptr);  // not pushed
  // The value is the object's until the next run, whatever the store does meanwhile.
  Set("Custom.Dva.Threshold.Detection", "50");
  EXPECT_EQ(json_integer_value(pgo_get_obj(pgo, "Custom.Dva.Threshold.Detection")), 35);
  ASSERT_EQ(pgo_run(pgo), 0);
  EXPECT_EQ(json_integer_value(pgo_get_obj(pgo, "Custom.Dva.Threshold.Detection")), 50);
  pgo_free(pgo);
  pgo_free(nullptr);
}

TEST_F(ParamStoreTest, AnUnreadableStoreFailsTheRun) {
  std::ofstream(kStore) << "{ half a wri";
  EXPECT_EQ(Fetch("Custom.Dva"), "(run failed)");
  EXPECT_EQ(mirvane_param_delete("Custom.Dva"), -1);
  std::remove(kStore);
  EXPECT_EQ(Fetch("Custom.Dva"), "(none)");  // no store yet: nothing stored
  EXPECT_EQ(mirvane_param_delete("Custom.Dva"), -2);
}

// A libev loop with an observer of "Custom.Dva", as the daemon's configuration thread runs it.
class ObservedLoop {
 public:
  ObservedLoop() : loop_(ev_loop_new(EVFLAG_NOENV | EVBACKEND_EPOLL)) {
    observer_ = param_observer_new(loop_);
    pgo_t* pgo = pgo_new();
    pgo_push_key(pgo, "Custom.Dva");
    param_observer_register_pgo(observer_, pgo);
    pgo_free(pgo);
    ev_io_init(&io_, OnReadable, param_observer_get_handle(observer_), EV_READ);
    io_.data = this;
    ev_io_start(loop_, &io_);
  }
  ~ObservedLoop() {
    ev_io_stop(loop_, &io_);
    mirvane_param_observer_free(observer_);
    ev_loop_destroy(loop_);
  }
  ObservedLoop(const ObservedLoop&) = delete;
  ObservedLoop& operator=(const ObservedLoop&) = delete;

  // Runs the loop until a notice arrives or 5 s pass; returns the keys of all notices so far.
  const std::vector<std::string>& RunUntilNotice() {
    ev_timer timeout;
    ev_timer_init(
        &timeout, [](struct ev_loop* l, ev_timer*, int) { ev_break(l, EVBREAK_ALL); }, 5.0, 0.0);
    ev_timer_start(loop_, &timeout);
    const size_t before = keys_.size();
    while (keys_.size() == before && ev_is_active(&timeout)) ev_run(loop_, EVRUN_ONCE);
    ev_timer_stop(loop_, &timeout);
    return keys_;
  }
  // Handles what is pending now without waiting: a store write has queued its directory event
  // by the time it returns, and a notice it causes is readable right after.
  const std::vector<std::string>& RunPending() {
    for (int i = 0; i < 3; ++i) ev_run(loop_, EVRUN_NOWAIT);
    return keys_;
  }
  const std::vector<int>& statuses() const { return statuses_; }

 private:
  static void OnReadable(struct ev_loop*, ev_io* w, int) {
    auto* self = static_cast<ObservedLoop*>(w->data);
    param_observer_process(self->observer_, w->fd, OnChange, self);
  }
  static void OnChange(int status, const char* key, json_t*, void* user_data) {
    auto* self = static_cast<ObservedLoop*>(user_data);
    self->statuses_.push_back(status);
    self->keys_.push_back(key);
  }

  struct ev_loop* loop_;
  param_observer_t* observer_ = nullptr;
  ev_io io_;
  std::vector<std::string> keys_;
  std::vector<int> statuses_;
};

TEST_F(ParamStoreTest, TheObserverFiresOnARealChangeUnderTheWatchedKeyOnly) {
  Set("Custom.Dva.Threshold.Detection", "35");
  ObservedLoop loop;
  Set("Custom.Other", "1");
  EXPECT_TRUE(loop.RunPending().empty());
  Set("Custom.Dva.Threshold.Detection", "35");  // the same value again
  EXPECT_TRUE(loop.RunPending().empty());
  Set("Custom.Dva.Threshold.Detection", "40");
  EXPECT_EQ(loop.RunUntilNotice(), std::vector<std::string>{"Custom.Dva"});
  EXPECT_EQ(loop.statuses(), std::vector<int>{0});
}

TEST_F(ParamStoreTest, TwoQuickChangesGiveAtLeastOneNotice) {
  ObservedLoop loop;
  Set("Custom.Dva.Threshold.Tracking", "55");
  Set("Custom.Dva.Threshold.Tracking", "65");
  EXPECT_GE(loop.RunUntilNotice().size(), 1u);
  EXPECT_EQ(Fetch("Custom.Dva.Threshold.Tracking"), "65");
}

TEST_F(ParamStoreTest, ADeletedKeyIsAChange) {
  Set("Custom.Dva.Threshold.Tracking", "55");
  ObservedLoop loop;
  ASSERT_EQ(mirvane_param_delete("Custom.Dva"), 0);
  EXPECT_EQ(loop.RunUntilNotice().size(), 1u);
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

TEST_F(ParamStoreTest, TheToolRoundTripsValues) {
  int code = -1;
  const std::vector<std::pair<std::string, std::string>> values = {
      {"Custom.Dva.Threshold.Detection", "35"},
      {"Custom.Dva.Name", "\"front door\""},
      {"Custom.Dva.IntrusionDetection", R"({"Enable": true, "Points": [[0.1, 0.2], [0.5, 0.9]]})"},
  };
  for (const auto& kv : values) {
    RunTool({"set", kv.first, kv.second}, &code);
    ASSERT_EQ(code, 0) << kv.first;
  }
  for (const auto& kv : values) {
    const std::string printed = RunTool({"get", kv.first}, &code);
    EXPECT_EQ(code, 0);
    // What get prints sets the same value again.
    RunTool({"set", kv.first, printed}, &code);
    EXPECT_EQ(RunTool({"get", kv.first}, &code), printed);
    json_t* expected = json_loads(kv.second.c_str(), JSON_DECODE_ANY, nullptr);
    json_t* got = json_loads(printed.c_str(), JSON_DECODE_ANY, nullptr);
    EXPECT_TRUE(json_equal(expected, got)) << printed;
    json_decref(expected);
    json_decref(got);
  }
  RunTool({"set", "Custom.Dva.Label", "plain text"}, &code);
  EXPECT_EQ(RunTool({"get", "Custom.Dva.Label"}, &code), "\"plain text\"\n");

  RunTool({"delete", "Custom.Dva.Name"}, &code);
  EXPECT_EQ(code, 0);
  RunTool({"get", "Custom.Dva.Name"}, &code);
  EXPECT_EQ(code, 1);
  RunTool({"delete", "Custom.Dva.Name"}, &code);
  EXPECT_EQ(code, 1);

  std::ofstream("/tmp/defaults.json") << R"({"Custom.Dva.Threshold": {"Tracking": 60}})";
  RunTool({"load", "/tmp/defaults.json"}, &code);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(Fetch("Custom.Dva.Threshold"), R"({"Tracking":60})");
  RunTool({"frobnicate"}, &code);
  EXPECT_EQ(code, 2);
}

}  // namespace
}  // namespace mirvane

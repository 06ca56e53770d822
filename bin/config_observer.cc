// The configuration thread: an event loop that watches "Custom.Dva" in the parameter store and
// raises g_reload_config on every change notice. It reads no setting itself; the pipeline thread
// reloads everything on its own thread.
#include <ev.h>
#include <unistd.h>

#include "bin/daemon_threads.h"
#include "bin/process_flags.h"
#include "common/log.h"
#include "common/sleep.h"
#include "param_observer.h"
#include "pgo.h"

namespace mirvane {
namespace {

constexpr const char* kWatchedKey = "Custom.Dva";
constexpr double kStopCheckPeriodS = 1.0;
constexpr long long kStopCheckNs = 1000000000LL;

// The thread's event-loop state; one configuration thread per process.
struct ev_loop* g_config_loop = nullptr;
ev_io g_config_io;

void OnConfigChanged(int status, const char*, json_t*, void*) {
  if (status == 0) g_reload_config.store(1);
}

void OnConfigIo(struct ev_loop*, ev_io* watcher, int) {
  auto* observer = static_cast<param_observer_t*>(watcher->data);
  (void)param_observer_process(observer, watcher->fd, OnConfigChanged, nullptr);
}

void OnStopTimer(struct ev_loop* loop, ev_timer*, int) {
  if (g_running.load() == 0) ev_break(loop, EVBREAK_ALL);
}

}  // namespace

void RunConfigObserver() {
  g_config_loop = ev_loop_new(EVFLAG_NOENV | EVBACKEND_EPOLL);
  if (g_config_loop == nullptr) {
    // Without a loop no change is ever noticed: the settings of the first reload stay.
    MIRVANE_LOG(kLogErr, "ev_loop_new fail, settings changes are not watched\n");
    while (g_running.load() != 0) SleepFully(kStopCheckNs);
    return;
  }
  param_observer_t* observer = param_observer_new(g_config_loop);
  pgo_t* pgo = pgo_new();
  pgo_push_key(pgo, kWatchedKey);
  param_observer_register_pgo(observer, pgo);
  pgo_free(pgo);

  const int fd = param_observer_get_handle(observer);
  ev_io_init(&g_config_io, OnConfigIo, fd, EV_READ);
  g_config_io.data = observer;
  if (fd >= 0) ev_io_start(g_config_loop, &g_config_io);  // a missing handle never fires
  ev_timer stop_timer;
  ev_timer_init(&stop_timer, OnStopTimer, kStopCheckPeriodS, kStopCheckPeriodS);
  ev_timer_start(g_config_loop, &stop_timer);

  ev_run(g_config_loop, 0);

  if (fd >= 0) close(fd);
  ev_io_stop(g_config_loop, &g_config_io);
  ev_loop_destroy(g_config_loop);
  g_config_loop = nullptr;
  // The observer is not released: the process is ending.
}

}  // namespace mirvane

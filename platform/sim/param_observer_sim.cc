// param_observer_* of the host simulation. The observer watches the store's directory with
// inotify through an I/O watcher in the caller's libev loop; when the store file is replaced or
// written it re-reads the store and compares each watched key's value with the one it saw last.
// Each real change queues a notice and adds 1 to an eventfd, the observer's handle; processing
// reads the eventfd's count and dispatches that many notices.
#include <errno.h>
#include <ev.h>
#include <jansson.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <new>
#include <string>
#include <vector>

#include "file_util.h"
#include "mirvane_sim.h"
#include "param_observer.h"
#include "param_store.h"
#include "pgo_object.h"

// Owns the inotify and eventfd descriptors, the I/O watcher in the loop, the watched keys with the
// value each had last, and the queued notices (one reference each). Used on the loop's thread.
struct param_observer {
  struct Watch {
    std::string key;
    std::string last;  // canonical text of the value last seen ("" when absent)
  };
  struct Notice {
    std::string key;
    json_t* value;
  };

  struct ev_loop* loop = nullptr;
  ev_io io;
  int inotify_fd = -1;
  int event_fd = -1;
  mirvane::sim::ParamStore store{""};
  std::string store_name;  // file name inside the watched directory
  std::vector<Watch> watches;
  std::deque<Notice> notices;
};

namespace {

void Refresh(param_observer* obs) {
  json_t* root = obs->store.Read();
  if (root == nullptr) return;  // unreadable right now: the next write brings a new look
  for (param_observer::Watch& watch : obs->watches) {
    json_t* value = mirvane::sim::ResolveKey(root, watch.key);
    std::string text = mirvane::sim::CanonicalText(value);
    if (text == watch.last) continue;
    watch.last = std::move(text);
    obs->notices.push_back(param_observer::Notice{watch.key, json_incref(value)});
    const uint64_t one = 1;
    ssize_t n;
    do {
      n = write(obs->event_fd, &one, sizeof one);
    } while (n < 0 && errno == EINTR);
  }
  json_decref(root);
}

void OnDirectoryEvent(struct ev_loop* /*loop*/, ev_io* w, int /*revents*/) {
  param_observer* obs = static_cast<param_observer*>(w->data);
  alignas(struct inotify_event) char buf[4096];
  bool touched = false;
  for (;;) {
    const ssize_t n = read(obs->inotify_fd, buf, sizeof buf);
    if (n <= 0) break;
    for (ssize_t at = 0; at < n;) {
      const auto* event = reinterpret_cast<const struct inotify_event*>(buf + at);
      if (event->len > 0 && obs->store_name == event->name) touched = true;
      if (event->mask & IN_Q_OVERFLOW) touched = true;
      at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
    }
  }
  if (touched) Refresh(obs);
}

}  // namespace

extern "C" {

param_observer_t* param_observer_new(struct ev_loop* loop) {
  if (loop == nullptr) return nullptr;
  auto* obs = new (std::nothrow) param_observer();
  if (obs == nullptr) return nullptr;
  obs->loop = loop;
  obs->store = mirvane::sim::CurrentParamStore();
  const std::string& path = obs->store.path();
  const std::string dir = mirvane::sim::DirName(path);
  obs->store_name = path.substr(path.rfind('/') + 1);
  obs->inotify_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  obs->event_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (obs->inotify_fd < 0 || obs->event_fd < 0 || !mirvane::sim::MakeDirs(dir) ||
      inotify_add_watch(obs->inotify_fd, dir.c_str(),
                        IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE) < 0) {
    if (obs->inotify_fd >= 0) close(obs->inotify_fd);
    if (obs->event_fd >= 0) close(obs->event_fd);
    delete obs;
    return nullptr;
  }
  ev_io_init(&obs->io, OnDirectoryEvent, obs->inotify_fd, EV_READ);
  obs->io.data = obs;
  ev_io_start(loop, &obs->io);
  return obs;
}

int param_observer_register_pgo(param_observer_t* observer, pgo_t* pgo) {
  if (observer == nullptr || pgo == nullptr) return -1;
  // Changes count from the values the keys have now.
  json_t* root = observer->store.Read();
  for (const std::string& key : pgo->keys) {
    observer->watches.push_back(param_observer::Watch{
        key, mirvane::sim::CanonicalText(root ? mirvane::sim::ResolveKey(root, key) : nullptr)});
  }
  json_decref(root);
  return 0;
}

int param_observer_get_handle(param_observer_t* observer) {
  return observer == nullptr ? -1 : observer->event_fd;
}

int param_observer_process(param_observer_t* observer, int fd, param_observer_cb callback,
                           void* user_data) {
  if (observer == nullptr || fd != observer->event_fd) return -1;
  uint64_t count = 0;
  if (read(fd, &count, sizeof count) != static_cast<ssize_t>(sizeof count)) {
    return errno == EAGAIN ? 0 : -1;
  }
  int dispatched = 0;
  for (; count > 0 && !observer->notices.empty(); --count) {
    param_observer::Notice notice = observer->notices.front();
    observer->notices.pop_front();
    if (callback != nullptr) callback(0, notice.key.c_str(), notice.value, user_data);
    json_decref(notice.value);
    ++dispatched;
  }
  return dispatched;
}

void mirvane_param_observer_free(param_observer_t* observer) {
  if (observer == nullptr) return;
  ev_io_stop(observer->loop, &observer->io);
  close(observer->inotify_fd);
  close(observer->event_fd);
  for (param_observer::Notice& notice : observer->notices) json_decref(notice.value);
  delete observer;
}

}  // extern "C"

#include "stand_in.h"

#include <errno.h>
#include <ev.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "printer.h"
#include "snapshot_keeper.h"
#include "protocol.h"
#include "supervisor.h"
#include "sysapi.h"

namespace mirvane {
namespace sysd {
namespace {

constexpr size_t kReadChunk = 65536;
constexpr double kPollPeriodS = 0.25;
constexpr double kStopGraceS = 20;  // how long a stopping daemon may take before SIGKILL

double Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9;
}

std::string Text(const std::vector<uint8_t>& body, size_t offset = 0) {
  if (body.size() <= offset) return std::string();
  const char* start = reinterpret_cast<const char*>(body.data() + offset);
  return std::string(start, strnlen(start, body.size() - offset));
}

int32_t WordAt(const std::vector<uint8_t>& body, size_t offset) {
  int32_t value = 0;
  if (body.size() >= offset + 4) std::memcpy(&value, body.data() + offset, 4);
  return value;
}

std::string Reply(uint32_t cmd, const void* content, uint32_t length) {
  const cmd_hdr hdr = {SYSTEMD_COMMAND_PACKET_SYNC_CODE, cmd, length};
  std::string reply(reinterpret_cast<const char*>(&hdr), sizeof(hdr));
  reply.append(static_cast<const char*>(content), length);
  return reply;
}

struct Client {
  ev_io watcher;  // first member: the callback casts the watcher back to its client
  int id = 0;
  StreamFramer framer;
  bool carried_heartbeat = false;
};

class StandIn {
 public:
  explicit StandIn(const StandInOptions& options)
      : options_(options),
        printer_(stdout, options.json, options.color),
        supervisor_({!options.restart_command.empty(), options.heartbeat_timeout_s, 1.0}) {
    if (!options.keep_snapshots.empty()) {
      keeper_ = std::make_unique<SnapshotKeeper>(options.snapshot_prefix, options.keep_snapshots);
    }
  }
  ~StandIn();
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

  int Run();

 private:
  static void OnAccept(struct ev_loop* loop, ev_io* watcher, int revents);
  static void OnClient(struct ev_loop* loop, ev_io* watcher, int revents);
  static void OnTimer(struct ev_loop* loop, ev_timer* watcher, int revents);
  static void OnSignal(struct ev_loop* loop, ev_signal* watcher, int revents);
  static void OnChild(struct ev_loop* loop, ev_child* watcher, int revents);

  bool Listen();
  void Read(Client* client);
  // Returns false when the client had to be dropped.
  bool Handle(Client* client, const Message& message);
  std::string Answer(const Message& message, std::string* detail);
  // Takes the reason by value: it may live in the client that is closed.
  void CloseClient(Client* client, std::string drop_reason);
  void Supervise();
  void StartDaemon();
  void Stop(const std::string& why);

  StandInOptions options_;
  Printer printer_;
  std::unique_ptr<FILE, int (*)(FILE*)> record_{nullptr, &std::fclose};  // when events are recorded
  Supervisor supervisor_;
  std::unique_ptr<SnapshotKeeper> keeper_;  // when snapshots are kept
  struct ev_loop* loop_ = nullptr;
  int listen_fd_ = -1;
  int next_client_id_ = 1;
  std::map<int, std::unique_ptr<Client>> clients_;  // by descriptor
  ev_io accept_watcher_;
  ev_timer timer_;
  ev_signal sigint_;
  ev_signal sigterm_;
  ev_child child_watcher_;
  pid_t child_ = -1;
  int restarts_done_ = 0;
  bool stopping_ = false;
  double started_at_ = 0;
  double stop_requested_at_ = 0;
};

StandIn::~StandIn() {
  for (auto& entry : clients_) {
    ev_io_stop(loop_, &entry.second->watcher);
    close(entry.first);
  }
  if (listen_fd_ >= 0) {
    close(listen_fd_);
    unlink(options_.socket_path.c_str());
  }
}

bool StandIn::Listen() {
  sockaddr_un addr = {};
  if (options_.socket_path.size() >= sizeof(addr.sun_path)) {
    std::fprintf(stderr, "mirvane-sysd: socket path too long: %s\n", options_.socket_path.c_str());
    return false;
  }
  listen_fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", options_.socket_path.c_str());
  unlink(options_.socket_path.c_str());
  if (listen_fd_ < 0 || bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
      listen(listen_fd_, 16) != 0) {
    std::fprintf(stderr, "mirvane-sysd: cannot listen on %s: %s\n", options_.socket_path.c_str(),
                 std::strerror(errno));
    return false;
  }
  return true;
}

int StandIn::Run() {
  if (!options_.record_events.empty()) {
    record_.reset(std::fopen(options_.record_events.c_str(), "wbe"));
    if (!record_) {
      std::fprintf(stderr, "mirvane-sysd: cannot write %s: %s\n", options_.record_events.c_str(),
                   std::strerror(errno));
      return 1;
    }
  }
  if (!Listen()) return 1;
  loop_ = ev_default_loop(EVFLAG_NOENV);
  if (loop_ == nullptr) {
    std::fprintf(stderr, "mirvane-sysd: cannot create the event loop\n");
    return 1;
  }
  ev_set_userdata(loop_, this);
  ev_io_init(&accept_watcher_, OnAccept, listen_fd_, EV_READ);
  ev_io_start(loop_, &accept_watcher_);
  ev_timer_init(&timer_, OnTimer, kPollPeriodS, kPollPeriodS);
  ev_timer_start(loop_, &timer_);
  ev_signal_init(&sigint_, OnSignal, SIGINT);
  ev_signal_start(loop_, &sigint_);
  ev_signal_init(&sigterm_, OnSignal, SIGTERM);
  ev_signal_start(loop_, &sigterm_);
  ev_child_init(&child_watcher_, OnChild, 0, 0);
  ev_child_start(loop_, &child_watcher_);
  started_at_ = Now();
  printer_.Note("listening on " + options_.socket_path);
  if (options_.start && !options_.restart_command.empty()) StartDaemon();
  ev_run(loop_, 0);
  printer_.Summary(options_.snapshot_prefix);
  return 0;
}

void StandIn::OnAccept(struct ev_loop* loop, ev_io*, int) {
  StandIn* self = static_cast<StandIn*>(ev_userdata(loop));
  const int fd = accept4(self->listen_fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) return;
  if (static_cast<int>(self->clients_.size()) >= self->options_.max_clients) {
    self->printer_.Note("refused a client: " + std::to_string(self->options_.max_clients) +
                        " clients already");
    close(fd);
    return;
  }
  auto client = std::make_unique<Client>();
  client->id = self->next_client_id_++;
  ev_io_init(&client->watcher, OnClient, fd, EV_READ);
  ev_io_start(loop, &client->watcher);
  self->printer_.Connected(client->id);
  self->clients_[fd] = std::move(client);
}

void StandIn::OnClient(struct ev_loop* loop, ev_io* watcher, int) {
  static_cast<StandIn*>(ev_userdata(loop))->Read(reinterpret_cast<Client*>(watcher));
}

void StandIn::Read(Client* client) {
  uint8_t chunk[kReadChunk];
  const ssize_t n = read(client->watcher.fd, chunk, sizeof(chunk));
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (n <= 0) {
    const size_t pending = client->framer.pending();
    CloseClient(client, pending == 0 ? std::string()
                                     : "closed inside a message (" + std::to_string(pending) +
                                           " bytes of it arrived)");
    return;
  }
  std::vector<Message> messages;
  const bool ok = client->framer.Feed(chunk, static_cast<size_t>(n), &messages);
  for (const Message& message : messages) {
    if (!Handle(client, message)) return;
  }
  if (!ok) CloseClient(client, client->framer.error());
}

bool StandIn::Handle(Client* client, const Message& message) {
  switch (message.cmd) {
    case SYSAPI_CMD_EVENT: {
      if (record_ && std::fwrite(message.body.data(), 1, message.body.size(), record_.get()) !=
                         message.body.size()) {
        printer_.Note("cannot record the event: " + std::string(std::strerror(errno)));
      }
      Event event;
      std::string error;
      if (DecodeEvent(message.body, &event, &error)) {
        printer_.EventLine(client->id, event);
        if (keeper_) {
          const std::string note = keeper_->Keep(event);
          if (!note.empty()) printer_.Note(note);
        }
      } else {
        printer_.BadEvent(client->id, error);
      }
      return true;
    }
    case SYSAPI_CMD_WDG_ALIVE:
    case SYSAPI_CMD_WDG_RELEASE: {
      const Heartbeat beat = DecodeHeartbeat(message.cmd, message.body);
      client->carried_heartbeat = true;
      printer_.HeartbeatLine(client->id, beat);
      supervisor_.OnHeartbeat(beat.alive, Now());
      Supervise();
      return true;
    }
    default:
      break;
  }
  std::string detail;
  const std::string reply = Answer(message, &detail);
  printer_.Command(client->id, message.cmd, message.body.size(), detail);
  if (!reply.empty() && send(client->watcher.fd, reply.data(), reply.size(),
                             MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(reply.size())) {
    CloseClient(client, "could not take its reply");
    return false;
  }
  return true;
}

// The answers of a healthy system daemon with one SD card "sd0", half full.
std::string StandIn::Answer(const Message& m, std::string* detail) {
  switch (m.cmd) {
    case SYSAPI_CMD_EVENT_REG: {
      *detail = "event registration, flags " + std::to_string(WordAt(m.body, 0));
      const int32_t status = 0;
      return Reply(m.cmd, &status, sizeof(status));
    }
    case SYSAPI_CMD_STORAGE: {
      const int32_t sub = WordAt(m.body, 0);
      const std::string device = Text(m.body, 4);
      *detail = "storage sub-command " + std::to_string(sub) + " device \"" + device + "\"";
      if (sub == SYSAPI_STORAGE_LIST) {
        char names[SYSAPI_STORAGE_LIST_REPLY_SIZE] = "sd0";
        return Reply(m.cmd, names, sizeof(names));
      }
      if (sub == SYSAPI_STORAGE_SHORT_INFO) {
        const sysapi_storage_info info = {2, 32768, 16384, 0};
        return Reply(m.cmd, &info, sizeof(info));
      }
      const int32_t status = device == "sd0" ? 0 : 1;
      return Reply(m.cmd, &status, sizeof(status));
    }
    case SYSAPI_CMD_RESTORE_CONF: {
      *detail = "restore configuration from \"" + Text(m.body) + "\"";
      const std::string json = "{\"restored\":true}";
      return Reply(m.cmd, json.data(), static_cast<uint32_t>(json.size()));
    }
    case SYSAPI_CMD_SNAPSHOT:
      *detail = "snapshot request \"" + Text(m.body) + "\" (no picture on this host)";
      return Reply(m.cmd, nullptr, 0);
    case SYSAPI_CMD_BUZZER:
      *detail = std::to_string(WordAt(m.body, 4)) + " beeps";
      break;
    case SYSAPI_CMD_RESET_CONF:
      *detail = "reset configuration, keep " + Text(m.body, SYSAPI_TEXT_BODY_SIZE);
      break;
    case SYSAPI_CMD_BACKUP_CONF:
    case SYSAPI_CMD_REBOOT:
    case SYSAPI_CMD_RESTART_APP:
    case SYSAPI_CMD_SETIME:
    case SYSAPI_CMD_RUN_APP:
    case SYSAPI_CMD_UPNP_CUSTOM_INFO:
      *detail = "\"" + Text(m.body) + "\"";
      break;
    default:
      *detail = "value " + std::to_string(WordAt(m.body, 0));
      break;
  }
  return std::string();
}

void StandIn::CloseClient(Client* client, std::string drop_reason) {
  const int fd = client->watcher.fd;
  const int id = client->id;
  const bool heartbeat = client->carried_heartbeat;
  ev_io_stop(loop_, &client->watcher);
  close(fd);
  clients_.erase(fd);  // client is gone from here on
  if (drop_reason.empty()) {
    printer_.Closed(id);
  } else {
    printer_.Dropped(id, drop_reason);
  }
  if (heartbeat) {
    supervisor_.OnHeartbeatConnectionClosed();
    Supervise();
  }
}

void StandIn::Supervise() {
  if (stopping_) return;
  const SupervisorDecision decision = supervisor_.Poll(Now());
  if (!decision.note.empty()) printer_.Note(decision.note);
  if (decision.action == SupervisorAction::kKillStale && child_ > 0) {
    printer_.Note("killing the hung daemon (pid " + std::to_string(child_) + ")");
    kill(child_, SIGKILL);
  } else if (decision.action == SupervisorAction::kRestart) {
    if (options_.max_restarts >= 0 && restarts_done_ >= options_.max_restarts) {
      Stop("the daemon ended after " + std::to_string(restarts_done_) + " restarts");
      return;
    }
    ++restarts_done_;
    ++printer_.stats().restarts;
    StartDaemon();
  }
}

void StandIn::StartDaemon() {
  printer_.Note("starting: " + options_.restart_command);
  std::fflush(stdout);
  const pid_t pid = fork();
  if (pid < 0) {
    printer_.Note(std::string("cannot fork: ") + std::strerror(errno));
    return;
  }
  if (pid == 0) {
    setpgid(0, 0);  // a Ctrl-C at the terminal reaches the stand-in, which stops the daemon
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (!options_.daemon_output.empty()) {
      const int fd = open(options_.daemon_output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      if (fd >= 0) {
        dup2(fd, 1);
        dup2(fd, 2);
        close(fd);
      }
    }
    execl("/bin/sh", "sh", "-c", ("exec " + options_.restart_command).c_str(),
          static_cast<char*>(nullptr));
    _exit(127);
  }
  child_ = pid;
  supervisor_.OnChildStarted(Now());
}

void StandIn::OnChild(struct ev_loop* loop, ev_child* watcher, int) {
  StandIn* self = static_cast<StandIn*>(ev_userdata(loop));
  if (watcher->rpid != self->child_) return;  // not the daemon (an earlier one, or a helper)
  const int status = watcher->rstatus;
  self->child_ = -1;
  self->supervisor_.OnChildExited();
  if (WIFSIGNALED(status)) {
    self->printer_.Note("daemon ended by signal " + std::to_string(WTERMSIG(status)));
  } else {
    self->printer_.Note("daemon exited with code " + std::to_string(WEXITSTATUS(status)));
  }
  if (self->stopping_) {
    ev_break(loop, EVBREAK_ALL);
    return;
  }
  self->Supervise();
}

void StandIn::OnTimer(struct ev_loop* loop, ev_timer*, int) {
  StandIn* self = static_cast<StandIn*>(ev_userdata(loop));
  const double now = Now();
  if (self->stopping_) {
    if (self->child_ > 0 && now - self->stop_requested_at_ > kStopGraceS) {
      self->printer_.Note("daemon did not stop in time: killing it");
      kill(self->child_, SIGKILL);
      self->stop_requested_at_ = now;
    }
    return;
  }
  if (self->options_.duration_s > 0 && now - self->started_at_ >= self->options_.duration_s) {
    self->Stop("run time over");
    return;
  }
  self->Supervise();
}

void StandIn::OnSignal(struct ev_loop* loop, ev_signal* watcher, int) {
  StandIn* self = static_cast<StandIn*>(ev_userdata(loop));
  if (self->stopping_) {
    ev_break(loop, EVBREAK_ALL);  // asked twice: do not wait any longer
    return;
  }
  self->Stop(watcher->signum == SIGINT ? "interrupted" : "terminated");
}

void StandIn::Stop(const std::string& why) {
  stopping_ = true;
  stop_requested_at_ = Now();
  if (child_ > 0) {
    printer_.Note(why + ": stopping the daemon (pid " + std::to_string(child_) + ")");
    kill(child_, SIGTERM);
    return;  // the loop ends when the child has exited
  }
  printer_.Note(why);
  ev_break(loop_, EVBREAK_ALL);
}

}  // namespace

int RunStandIn(const StandInOptions& options) {
  StandIn stand_in(options);
  return stand_in.Run();
}

}  // namespace sysd
}  // namespace mirvane

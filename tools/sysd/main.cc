// mirvane-sysd: a stand-in for the camera's system daemon on a PC. It serves the command socket,
// prints every heartbeat and event the daemon sends, answers request/reply commands, and restarts
// the daemon the way the camera would.
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "stand_in.h"

namespace {

void Usage(FILE* out) {
  std::fprintf(out,
               "usage: mirvane-sysd [options]\n"
               "  --socket PATH          command socket to serve (default /tmp/ipc-system)\n"
               "  --json                 print JSON lines instead of text\n"
               "  --color / --no-color   colours in text output (default: when a terminal)\n"
               "  --restart-command CMD  how to (re)start the daemon (run with /bin/sh -c)\n"
               "  --start                run the restart command once at start\n"
               "  --heartbeat-timeout S  silence after which the daemon counts as hung (15)\n"
               "  --max-restarts N       stop once the daemon ended after N restarts\n"
               "  --duration S           stop after S seconds (default: until Ctrl-C)\n"
               "  --daemon-output FILE   append the started daemon's output to FILE\n"
               "  --max-clients N        clients served at once (64)\n"
               "  --keep-snapshots DIR   copy each new snapshot of a track into DIR\n"
               "  --record-events FILE   write every event's payload, as received, to FILE\n");
}

bool ParseNumber(const char* text, double* value) {
  char* end = nullptr;
  *value = std::strtod(text, &end);
  return end != text && *end == '\0' && *value >= 0;
}

}  // namespace

int main(int argc, char** argv) {
  mirvane::sysd::StandInOptions options;
  options.color = isatty(STDOUT_FILENO) != 0;
  enum {
    kSocket = 1,
    kJson,
    kColor,
    kNoColor,
    kRestart,
    kStart,
    kTimeout,
    kMaxRestarts,
    kKeepSnapshots,
    kRecordEvents,
    kDuration,
    kOutput,
    kMaxClients,
    kHelp
  };
  static const option kOptions[] = {{"socket", required_argument, nullptr, kSocket},
                                    {"json", no_argument, nullptr, kJson},
                                    {"color", no_argument, nullptr, kColor},
                                    {"no-color", no_argument, nullptr, kNoColor},
                                    {"restart-command", required_argument, nullptr, kRestart},
                                    {"start", no_argument, nullptr, kStart},
                                    {"heartbeat-timeout", required_argument, nullptr, kTimeout},
                                    {"max-restarts", required_argument, nullptr, kMaxRestarts},
                                    {"duration", required_argument, nullptr, kDuration},
                                    {"daemon-output", required_argument, nullptr, kOutput},
                                    {"max-clients", required_argument, nullptr, kMaxClients},
                                    {"keep-snapshots", required_argument, nullptr, kKeepSnapshots},
                                    {"record-events", required_argument, nullptr, kRecordEvents},
                                    {"help", no_argument, nullptr, kHelp},
                                    {nullptr, 0, nullptr, 0}};
  int opt;
  double number = 0;
  while ((opt = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    const bool numeric =
        opt == kTimeout || opt == kMaxRestarts || opt == kDuration || opt == kMaxClients;
    if (numeric && !ParseNumber(optarg, &number)) {
      std::fprintf(stderr, "mirvane-sysd: not a non-negative number: %s\n", optarg);
      return 2;
    }
    switch (opt) {
      case kSocket:
        options.socket_path = optarg;
        break;
      case kJson:
        options.json = true;
        break;
      case kColor:
        options.color = true;
        break;
      case kNoColor:
        options.color = false;
        break;
      case kRestart:
        options.restart_command = optarg;
        break;
      case kStart:
        options.start = true;
        break;
      case kTimeout:
        options.heartbeat_timeout_s = number;
        break;
      case kMaxRestarts:
        options.max_restarts = static_cast<int>(number);
        break;
      case kDuration:
        options.duration_s = number;
        break;
      case kOutput:
        options.daemon_output = optarg;
        break;
      case kKeepSnapshots:
        options.keep_snapshots = optarg;
        break;
      case kRecordEvents:
        options.record_events = optarg;
        break;
      case kMaxClients:
        options.max_clients = number < 1 ? 1 : static_cast<int>(number);
        break;
      case kHelp:
        Usage(stdout);
        return 0;
      default:
        Usage(stderr);
        return 2;
    }
  }
  if (optind != argc) {
    Usage(stderr);
    return 2;
  }
  if (options.start && options.restart_command.empty()) {
    std::fprintf(stderr, "mirvane-sysd: --start needs --restart-command\n");
    return 2;
  }
  std::error_code failure;
  if (!options.keep_snapshots.empty() &&
      !std::filesystem::is_directory(options.keep_snapshots, failure) &&
      !std::filesystem::create_directories(options.keep_snapshots, failure)) {
    std::fprintf(stderr, "mirvane-sysd: %s: %s\n", options.keep_snapshots.c_str(),
                 failure.message().c_str());
    return 1;
  }
  return mirvane::sysd::RunStandIn(options);
}

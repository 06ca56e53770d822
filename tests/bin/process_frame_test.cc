// The process frame: signals, the watchdog heartbeat and the final update, tested on the daemon
// binary beside a test system daemon and, for the signal set-up, in child processes.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#include "bin/common_daemon_component.h"
#include "bin/process_flags.h"
#include "sysapi.h"
#include "testing/child_process.h"
#include "testing/system_peer.h"

namespace mirvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ChildResult;
using testing::PeerMessage;
using testing::RunInChild;
using testing::Subprocess;
using testing::SystemPeer;
using testing::WaitUntil;

bool WaitForHeartbeats(const SystemPeer& peer, size_t count) {
  return WaitUntil([&] { return peer.Heartbeats().size() >= count; }, seconds(10));
}

TEST(DaemonStop, EachStopSignalEndsItWithOneFinalHeartbeat) {
  for (const auto& c :
       {std::make_pair(SIGTERM, 'W'), std::make_pair(SIGINT, 'W'), std::make_pair(SIGUSR2, 'w')}) {
    SCOPED_TRACE(c.first);
    SystemPeer peer(kSystemSocketPath);
    Subprocess daemon({MIRVANE_DAEMON_PATH});
    ASSERT_TRUE(WaitForHeartbeats(peer, 1)) << daemon.ReadOut();
    // The handlers are installed before the pipeline thread starts, so once it has loaded its
    // settings a signal meets them.
    ASSERT_TRUE(WaitUntil(
        [&] { return daemon.ReadOut().find("Reload config") != std::string::npos; }, seconds(30)))
        << daemon.ReadOut();
    const size_t alive = peer.Heartbeats().size();
    daemon.Signal(c.first);
    ASSERT_TRUE(daemon.Wait(seconds(15)));
    EXPECT_EQ(daemon.result().exit_code, 0) << daemon.result().out << daemon.result().err;
    WaitForHeartbeats(peer, alive + 1);
    EXPECT_EQ(peer.Heartbeats(), std::string(alive, 'W') + c.second);
  }
}

// Runs a daemon component in a child beside a system daemon peer of its own (so that the fork is
// made from a single-threaded process), calls stop once the first update has gone out, and
// returns the heartbeats the peer received in all.
std::string HeartbeatsOfComponentInChild(const std::function<void()>& stop) {
  ChildResult result = RunInChild([&] {
    std::string heartbeats;
    {
      SystemPeer peer(kSystemSocketPath);
      {
        CommonDaemonComponent component("mirvane", "restart");
        if (!WaitForHeartbeats(peer, 1)) _exit(11);
        // Into its 5-s wait after the first update: a watchdog still between the update and the
        // wait (an emulator on a busy machine) would see the first signal alone.
        std::this_thread::sleep_for(milliseconds(500));
        stop();
      }
      WaitForHeartbeats(peer, 2);  // the destructor sent the final update
      heartbeats = peer.Heartbeats();
    }
    std::fputs(heartbeats.c_str(), stdout);
  });
  EXPECT_EQ(result.exit_code, 0) << result.err;
  return result.out;
}

TEST(DaemonStop, TheLastSignalDecidesTheFinalHeartbeat) {
  // raise() runs the handler on the calling thread before it returns, so the order is certain.
  EXPECT_EQ(HeartbeatsOfComponentInChild([] {
              raise(SIGUSR2);
              raise(SIGTERM);
            }),
            "WW");
  EXPECT_EQ(HeartbeatsOfComponentInChild([] {
              raise(SIGTERM);
              raise(SIGUSR2);
            }),
            "Ww");
  // The pipeline's give-up path only clears g_running; the final update then says alive.
  EXPECT_EQ(HeartbeatsOfComponentInChild([] { g_running = 0; }), "WW");
}

TEST(DaemonStop, RunsAndStopsWithoutASystemDaemon) {
  Subprocess daemon({MIRVANE_DAEMON_PATH});
  // Once the pipeline has loaded its settings, the signal handlers are in place (they are
  // installed before the threads start); a fixed wait can end before that under an emulator.
  ASSERT_TRUE(WaitUntil([&] { return daemon.ReadOut().find("Reload config") != std::string::npos; },
                        seconds(30)))
      << daemon.ReadOut();
  daemon.Signal(SIGTERM);
  ASSERT_TRUE(daemon.Wait(seconds(15)));
  EXPECT_EQ(daemon.result().exit_code, 0);
}

TEST(Watchdog, HeartbeatsAtStartAndEveryFiveSecondsWithNameAndRestartCommand) {
  SystemPeer peer(kSystemSocketPath);
  Subprocess daemon({MIRVANE_DAEMON_PATH});
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(WaitForHeartbeats(peer, 1));
  ASSERT_TRUE(WaitForHeartbeats(peer, 2));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(4500));
  daemon.Signal(SIGTERM);
  ASSERT_TRUE(daemon.Wait(seconds(15)));

  const PeerMessage first = peer.Messages().front();
  ASSERT_EQ(first.body.size(), SYSAPI_WDG_BODY_SIZE);
  EXPECT_STREQ(reinterpret_cast<const char*>(&first.body[SYSAPI_WDG_NAME_OFFSET]), "mirvane");
  EXPECT_STREQ(reinterpret_cast<const char*>(&first.body[SYSAPI_WDG_COMMAND_OFFSET]),
               "/etc/rc.d/init.d/mirvane restart &");
}

TEST(SignalSetup, HandlersOnlySetTheFlagsAndAFailingSigactionIsLoggedAndSkipped) {
  ChildResult result = RunInChild([] {
    CommonDaemonComponent component("mirvane", "restart");
    raise(SIGSEGV);  // a fault signal too only clears the flag and returns
    if (g_running != 0 || g_disable_watchdog != 0) _exit(10);
    // SIGKILL cannot be caught: that one fails, SIGUSR1 after it must still be installed.
    component.SetupSignalHandler({SIGKILL, SIGUSR1}, OnReleaseSignal);
    raise(SIGUSR1);
    if (g_disable_watchdog != 1) _exit(11);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find("[Mirvane][Err] common_daemon_component.cc:"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find(":SetupSignalHandler: failed to setup stop handler for signal, "
                            "signum = 9, errno = 22\n"),
            std::string::npos)
      << result.out;
}

}  // namespace
}  // namespace mirvane

// The process frame: signals, the watchdog heartbeat and the final update, tested on the daemon
// binary (each test starts its own daemon beside a test system daemon) and, for the signal set-up,
// in child processes.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

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

std::string Heartbeats(const SystemPeer& peer) {
  std::string letters;
  for (const PeerMessage& m : peer.Messages()) {
    if (m.cmd == SYSAPI_CMD_WDG_ALIVE || m.cmd == SYSAPI_CMD_WDG_RELEASE) {
      letters += static_cast<char>(m.cmd);
    }
  }
  return letters;
}

// Starts the daemon and waits for its first heartbeat, so that its handlers are in place.
void StartAndWaitForFirstHeartbeat(Subprocess& daemon, const SystemPeer& peer) {
  ASSERT_TRUE(WaitUntil([&] { return Heartbeats(peer).size() >= 1; }, seconds(10)))
      << daemon.ReadOut();
  // The handlers are installed right after the watchdog thread starts.
  std::this_thread::sleep_for(milliseconds(200));
}

// Runs a daemon component in a child process beside a system daemon peer of its own, calls stop
// once the first update has gone out, and returns the heartbeats the peer received in all. The
// peer lives in the child so that the fork is made from a single-threaded process.
std::string HeartbeatsOfComponentInChild(const std::function<void()>& stop) {
  ChildResult result = RunInChild([&] {
    std::string heartbeats;
    {
      SystemPeer peer(kSystemSocketPath);
      if (!peer.listening()) _exit(10);
      {
        CommonDaemonComponent component("mirvane", "restart");
        // The first update goes out at start whatever the flags say.
        if (!WaitUntil([&] { return Heartbeats(peer).size() >= 1; }, seconds(5))) _exit(11);
        stop();
      }
      // The destructor has sent the final update; the peer may still be reading it.
      WaitUntil([&] { return Heartbeats(peer).size() >= 2; }, seconds(5));
      heartbeats = Heartbeats(peer);
    }
    std::fputs(heartbeats.c_str(), stdout);
  });
  EXPECT_EQ(result.exit_code, 0) << result.err;
  return result.out;
}

// Stops the daemon with the given signals and returns the heartbeats it sent in all.
std::string StopWith(const std::vector<int>& signals) {
  SystemPeer peer(kSystemSocketPath);
  EXPECT_TRUE(peer.listening());
  Subprocess daemon({MIRVANE_DAEMON_PATH});
  StartAndWaitForFirstHeartbeat(daemon, peer);
  for (int signum : signals) daemon.Signal(signum);
  EXPECT_TRUE(daemon.Wait(seconds(15)));
  EXPECT_EQ(daemon.result().exit_code, 0) << daemon.result().out << daemon.result().err;
  return Heartbeats(peer);
}

TEST(DaemonStop, SigtermSendsOneFinalAliveHeartbeat) { EXPECT_EQ(StopWith({SIGTERM}), "WW"); }

TEST(DaemonStop, SigintSendsOneFinalAliveHeartbeat) { EXPECT_EQ(StopWith({SIGINT}), "WW"); }

TEST(DaemonStop, Sigusr2SendsOneFinalReleaseHeartbeat) { EXPECT_EQ(StopWith({SIGUSR2}), "Ww"); }

TEST(DaemonStop, TheLastSignalDecidesTheFinalHeartbeat) {
  // raise() runs the handler on the calling thread before it returns, so the order is certain;
  // signals sent with kill() may be handled concurrently on two threads.
  for (const auto& order : {std::make_pair(SIGUSR2, SIGTERM), std::make_pair(SIGTERM, SIGUSR2)}) {
    const std::string heartbeats = HeartbeatsOfComponentInChild([&] {
      raise(order.first);
      raise(order.second);
    });
    EXPECT_EQ(heartbeats, order.second == SIGTERM ? "WW" : "Ww");
  }
}

TEST(DaemonStop, RunsAndStopsWithoutASystemDaemon) {
  Subprocess daemon({MIRVANE_DAEMON_PATH});
  std::this_thread::sleep_for(milliseconds(300));
  daemon.Signal(SIGTERM);
  ASSERT_TRUE(daemon.Wait(seconds(15)));
  EXPECT_EQ(daemon.result().exit_code, 0);
}

TEST(Watchdog, HeartbeatsAtStartAndEveryFiveSecondsWithNameAndRestartCommand) {
  SystemPeer peer(kSystemSocketPath);
  Subprocess daemon({MIRVANE_DAEMON_PATH});
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(WaitUntil([&] { return Heartbeats(peer).size() >= 1; }, seconds(10)));
  ASSERT_TRUE(WaitUntil([&] { return Heartbeats(peer).size() >= 2; }, seconds(10)));
  const auto second_after = std::chrono::steady_clock::now() - start;
  EXPECT_GE(second_after, milliseconds(4500));
  daemon.Signal(SIGTERM);
  ASSERT_TRUE(daemon.Wait(seconds(15)));

  const PeerMessage first = peer.Messages().front();
  ASSERT_EQ(first.body.size(), SYSAPI_WDG_BODY_SIZE);
  EXPECT_STREQ(reinterpret_cast<const char*>(&first.body[SYSAPI_WDG_NAME_OFFSET]), "mirvane");
  EXPECT_STREQ(reinterpret_cast<const char*>(&first.body[SYSAPI_WDG_COMMAND_OFFSET]),
               "/etc/rc.d/init.d/mirvane restart &");
}

TEST(Watchdog, StopFromInsideEndsTheWaitAtTheDestructor) {
  // The pipeline's give-up path only clears g_running; the final update then says alive.
  EXPECT_EQ(HeartbeatsOfComponentInChild([] { g_running = 0; }), "WW");
}

TEST(SignalSetup, AFailingSigactionIsLoggedAndTheOtherHandlersStay) {
  ChildResult result = RunInChild([] {
    CommonDaemonComponent component("mirvane", "restart");
    // SIGKILL cannot be caught: that one fails, SIGUSR1 after it must still be installed.
    component.SetupSignalHandler({SIGKILL, SIGUSR1}, OnReleaseSignal);
    raise(SIGUSR1);
    if (g_running != 0 || g_disable_watchdog != 1) _exit(10);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find("[Mirvane][Err] common_daemon_component.cc:"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find(":SetupSignalHandler: failed to setup stop handler for signal, "
                            "signum = 9, errno = 22\n"),
            std::string::npos)
      << result.out;
}

TEST(SignalSetup, HandlersOnlyClearTheRunFlag) {
  ChildResult result = RunInChild([] {
    CommonDaemonComponent component("mirvane", "restart");
    raise(SIGSEGV);  // a fault signal too only clears the flag and returns
    if (g_running != 0 || g_disable_watchdog != 0) _exit(10);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.term_signal, 0);
}

}  // namespace
}  // namespace mirvane

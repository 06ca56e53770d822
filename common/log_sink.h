// Test hooks of the log front end (common/log.h): a sink that takes the lines instead of the
// debug log file and standard output, and a setting of the debug switch. The daemon never calls
// them; without a sink and a setting the front end behaves as log.h says.
//
// Threads: any thread may call these functions; the sink is called under a lock of its own, from
// whichever thread logs, one line at a time.
#ifndef MIRVANE_COMMON_LOG_SINK_H
#define MIRVANE_COMMON_LOG_SINK_H

#include <functional>
#include <string>

namespace mirvane {

// Takes each line that LogPrint writes, in its standard output form ("[Mirvane][<level>] <file
// base name>:<line>:<function>: <message>", whole, with any count of dropped repeats), together
// with its level. Lines still pass the repeat filter first; the debug log file is neither written
// nor rotated while a sink is installed.
using LogSink = std::function<void(unsigned level, const std::string& line)>;

// Installs sink (an empty one removes it) and returns the one it replaces.
LogSink SetLogSink(LogSink sink);

// Forgets the repeat filter's counts: every line may be written again, up to the burst.
void ForgetLogRepeats();

// Debug switch settings: the switch file as read at the first level test, or fixed on or off.
enum class DebugSwitch { kFromFile, kOn, kOff };

// Sets what IsLogLevelEnabled(kLogDebug) answers from now on; returns the setting it replaces.
DebugSwitch SetDebugSwitch(DebugSwitch setting);

}  // namespace mirvane

#endif  // MIRVANE_COMMON_LOG_SINK_H

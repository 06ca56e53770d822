// The host simulation's media module: the parts that need FFmpeg's and OpenCV's libraries (video
// files, the motion detector, users' ONNX networks) live in a module of their own, loaded on first
// use, so that nothing that merely links the simulation (the daemon's host build, the tools) loads
// those libraries or waits for them at start-up. A build without them has no module; the calls
// then fail with a reason.
//
// The module is loaded once per process and never unloaded; any thread may call.
#ifndef MIRVANE_PLATFORM_SIM_MEDIA_MODULE_H
#define MIRVANE_PLATFORM_SIM_MEDIA_MODULE_H

#include <string>

namespace mirvane {
namespace sim {

// The module's function of that name, or nullptr with a reason (no module in this build, or it
// does not load).
void* MediaFunction(const char* name, std::string* error);

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_MEDIA_MODULE_H

#include "media_module.h"

#include <dlfcn.h>

#include <mutex>

#include "frame_source.h"

namespace mirvane {
namespace sim {

void* MediaFunction(const char* name, std::string* error) {
#ifdef MIRVANE_SIM_MEDIA_MODULE
  static std::once_flag once;
  static void* module = nullptr;
  static std::string failure;
  std::call_once(once, [] {
    module = dlopen(MIRVANE_SIM_MEDIA_MODULE, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) failure = dlerror();
  });
  if (module == nullptr) {
    *error = "the media module does not load: " + failure;
    return nullptr;
  }
  void* function = dlsym(module, name);
  if (function == nullptr) *error = std::string("the media module has no ") + name;
  return function;
#else
  (void)name;
  *error = "this build has no media module (FFmpeg's and OpenCV's libraries were not found)";
  return nullptr;
#endif
}

std::unique_ptr<FrameSource> MakeVideoFileSource(const std::string& path, uint32_t width,
                                                 uint32_t height, std::string* error) {
  using Open = FrameSource* (*)(const std::string*, uint32_t, uint32_t, std::string*);
  std::string why;
  auto open = reinterpret_cast<Open>(MediaFunction("mirvane_media_open_video", &why));
  if (open == nullptr) {
    *error = "cannot play " + path + ": " + why;
    return nullptr;
  }
  return std::unique_ptr<FrameSource>(open(&path, width, height, error));
}

}  // namespace sim
}  // namespace mirvane

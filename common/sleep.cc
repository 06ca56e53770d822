#include "common/sleep.h"

#include <time.h>

#include <cerrno>

namespace mirvane {

void SleepFully(long long nanoseconds) {
  timespec left = {static_cast<time_t>(nanoseconds / 1000000000LL),
                   static_cast<long>(nanoseconds % 1000000000LL)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace mirvane

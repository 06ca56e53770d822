#include "bin/threshold.h"

#include "bin/pgo_access.h"
#include "common/log.h"

namespace mirvane {

void Threshold::ReloadFromPgo() {
  detection = static_cast<float>(GetPgoInt(kDetectionThresholdKey)) / 100.0f;
  tracking = static_cast<float>(GetPgoInt(kTrackingThresholdKey)) / 100.0f;
  MIRVANE_LOG(kLogInfo, "Set threshold: detection[%f], tracking[%f]\n",
              static_cast<double>(detection), static_cast<double>(tracking));
}

}  // namespace mirvane

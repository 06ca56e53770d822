// Settings of the reference network for the model tool: from a JSON object and from command-line
// options, over a starting set.
#ifndef MIRVANE_TOOLS_MODEL_MODEL_SETTINGS_H
#define MIRVANE_TOOLS_MODEL_MODEL_SETTINGS_H

#include <string>
#include <vector>

#include "model_file.h"

namespace mirvane {
namespace model_tool {

// Applies the members of a JSON object: "seed" (integer), "score", "score_jitter", "miss_rate",
// "false_rate", "box_jitter" (numbers), "delay_ms" (integer). Unknown members and wrong types are
// errors. Returns false with *error set.
bool ApplySettingsJson(const std::string& text, sim::ai::NetworkSettings* settings,
                       std::string* error);

// The names of the settings as options take them (dashes for underscores: "miss-rate").
std::vector<std::string> SettingOptionNames();

// Applies one "--name value" option with the same names (dashes for underscores, e.g.
// --miss-rate 0.1). Returns false with *error set for an unknown name or a bad value.
bool ApplySettingOption(const std::string& name, const std::string& value,
                        sim::ai::NetworkSettings* settings, std::string* error);

}  // namespace model_tool
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_MODEL_MODEL_SETTINGS_H

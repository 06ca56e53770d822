#include "bin/rule/json_settings.h"

namespace mirvane {
namespace rule {

JsonRef SettingsObject(const json_t* value) {
  JsonRef object;
  if (json_is_object(value)) {
    object.reset(json_incref(const_cast<json_t*>(value)));
  } else if (json_is_string(value)) {
    object.reset(json_loads(json_string_value(value), 0, nullptr));
  }
  if (!json_is_object(object.get())) object.reset();
  return object;
}

}  // namespace rule
}  // namespace mirvane

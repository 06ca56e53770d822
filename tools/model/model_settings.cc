#include "model_settings.h"

#include <jansson.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace mirvane {
namespace model_tool {
namespace {

enum class Type { kInteger, kNumber };

// Settable fields by name.
struct Field {
  const char* name;
  Type type;
  void (*set)(sim::ai::NetworkSettings*, double, unsigned long long);
};

const Field kFields[] = {
    {"seed", Type::kInteger,
     [](sim::ai::NetworkSettings* s, double, unsigned long long v) { s->seed = v; }},
    {"score", Type::kNumber,
     [](sim::ai::NetworkSettings* s, double v, unsigned long long) {
       s->score = static_cast<float>(v);
     }},
    {"score_jitter", Type::kNumber,
     [](sim::ai::NetworkSettings* s, double v, unsigned long long) {
       s->score_jitter = static_cast<float>(v);
     }},
    {"miss_rate", Type::kNumber,
     [](sim::ai::NetworkSettings* s, double v, unsigned long long) {
       s->miss_rate = static_cast<float>(v);
     }},
    {"false_rate", Type::kNumber,
     [](sim::ai::NetworkSettings* s, double v, unsigned long long) {
       s->false_rate = static_cast<float>(v);
     }},
    {"box_jitter", Type::kNumber,
     [](sim::ai::NetworkSettings* s, double v, unsigned long long) {
       s->box_jitter = static_cast<float>(v);
     }},
    {"delay_ms", Type::kInteger,
     [](sim::ai::NetworkSettings* s, double, unsigned long long v) {
       s->delay_ms = static_cast<uint32_t>(v);
     }},
};

const Field* FieldNamed(const std::string& name) {
  for (const Field& f : kFields) {
    if (name == f.name) return &f;
  }
  return nullptr;
}

struct JsonRelease {
  void operator()(json_t* j) const { json_decref(j); }
};

}  // namespace

bool ApplySettingsJson(const std::string& text, sim::ai::NetworkSettings* settings,
                       std::string* error) {
  json_error_t jerr;
  std::unique_ptr<json_t, JsonRelease> root(json_loads(text.c_str(), 0, &jerr));
  if (!root) {
    *error = std::string("not JSON: ") + jerr.text + " at line " + std::to_string(jerr.line);
    return false;
  }
  if (!json_is_object(root.get())) {
    *error = "settings must be a JSON object";
    return false;
  }
  const char* key;
  json_t* value;
  json_object_foreach(root.get(), key, value) {
    const Field* field = FieldNamed(key);
    if (field == nullptr) {
      *error = std::string("unknown setting \"") + key + "\"";
      return false;
    }
    if (field->type == Type::kInteger) {
      if (!json_is_integer(value) || json_integer_value(value) < 0) {
        *error = std::string("\"") + key + "\" must be a non-negative integer";
        return false;
      }
      field->set(settings, 0, static_cast<unsigned long long>(json_integer_value(value)));
    } else {
      if (!json_is_number(value)) {
        *error = std::string("\"") + key + "\" must be a number";
        return false;
      }
      field->set(settings, json_number_value(value), 0);
    }
  }
  return true;
}

std::vector<std::string> SettingOptionNames() {
  std::vector<std::string> names;
  for (const Field& f : kFields) {
    std::string name = f.name;
    for (char& c : name) c = c == '_' ? '-' : c;
    names.push_back(name);
  }
  return names;
}

bool ApplySettingOption(const std::string& name, const std::string& value,
                        sim::ai::NetworkSettings* settings, std::string* error) {
  std::string key = name;
  for (char& c : key) c = c == '-' ? '_' : c;
  const Field* field = FieldNamed(key);
  if (field == nullptr) {
    *error = "unknown option --" + name;
    return false;
  }
  errno = 0;
  char* end = nullptr;
  if (field->type == Type::kInteger) {
    const unsigned long long v = std::strtoull(value.c_str(), &end, 0);
    if (errno != 0 || end == value.c_str() || *end != '\0' || value[0] == '-') {
      *error = "--" + name + " needs a non-negative integer, not \"" + value + "\"";
      return false;
    }
    field->set(settings, 0, v);
  } else {
    const double v = std::strtod(value.c_str(), &end);
    if (errno != 0 || end == value.c_str() || *end != '\0') {
      *error = "--" + name + " needs a number, not \"" + value + "\"";
      return false;
    }
    field->set(settings, v, 0);
  }
  return true;
}

}  // namespace model_tool
}  // namespace mirvane

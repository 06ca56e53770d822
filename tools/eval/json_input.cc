#include "json_input.h"

#include <fstream>
#include <sstream>

namespace mirvane {
namespace eval {

JsonRef ParseJson(const std::string& text, std::string* error) {
  json_error_t problem;
  JsonRef json(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &problem));
  if (json == nullptr && error != nullptr) {
    *error = std::string(problem.text) + " (column " + std::to_string(problem.column) + ")";
  }
  return json;
}

bool ForEachLine(const std::string& text,
                 const std::function<bool(const std::string&, size_t)>& visit) {
  size_t number = 0;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    ++number;
    const std::string line = text.substr(start, end - start);
    start = end + 1;
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    if (!visit(line, number)) return false;
  }
  return true;
}

bool NumberField(const json_t* object, const char* key, double* value) {
  const json_t* field = json_object_get(object, key);
  if (!json_is_number(field)) return false;
  *value = json_number_value(field);
  return true;
}

bool IntegerField(const json_t* object, const char* key, int64_t* value) {
  const json_t* field = json_object_get(object, key);
  if (!json_is_integer(field)) return false;
  *value = static_cast<int64_t>(json_integer_value(field));
  return true;
}

bool BoxValue(const json_t* value, Box* box) {
  if (!json_is_array(value) || json_array_size(value) != 4) return false;
  double corners[4];
  for (size_t i = 0; i < 4; ++i) {
    const json_t* item = json_array_get(value, i);
    if (!json_is_number(item)) return false;
    corners[i] = json_number_value(item);
  }
  *box = Box{corners[0], corners[1], corners[2], corners[3]};
  return true;
}

bool ReadTextFile(const std::string& path, std::string* text, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) {
    *error = "cannot read " + path;
    return false;
  }
  *text = content.str();
  return true;
}

std::string AtLine(size_t line, const std::string& what) {
  return "line " + std::to_string(line) + ": " + what;
}

}  // namespace eval
}  // namespace mirvane

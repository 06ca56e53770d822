// Reading helpers shared by the evaluator's input formats: an owning JSON reference, line
// splitting and typed field access with readable complaints. Pure functions; any thread.
#ifndef MIRVANE_TOOLS_EVAL_JSON_INPUT_H
#define MIRVANE_TOOLS_EVAL_JSON_INPUT_H

#include <jansson.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "sequence.h"

namespace mirvane {
namespace eval {

struct JsonRelease {
  void operator()(json_t* json) const { json_decref(json); }
};
using JsonRef = std::unique_ptr<json_t, JsonRelease>;

// Parses one JSON document; null with a reason on bad text.
JsonRef ParseJson(const std::string& text, std::string* error);

// Calls visit(line, line number from 1) for every line that holds more than white space, until
// visit returns false. Returns whether every call returned true.
bool ForEachLine(const std::string& text,
                 const std::function<bool(const std::string&, size_t)>& visit);

// A JSON number (integer or real) as a double; false when absent or of another type.
bool NumberField(const json_t* object, const char* key, double* value);
// A JSON integer; false when absent or not an integer.
bool IntegerField(const json_t* object, const char* key, int64_t* value);
// [xmin, ymin, xmax, ymax] of four numbers; false for anything else.
bool BoxValue(const json_t* value, Box* box);

// The whole content of a file; false with a reason when it cannot be read.
bool ReadTextFile(const std::string& path, std::string* text, std::string* error);

// "line 12: " + what.
std::string AtLine(size_t line, const std::string& what);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_JSON_INPUT_H

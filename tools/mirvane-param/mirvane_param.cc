// mirvane-param: the parameter store from the command line, as a user changes the daemon's
// settings on a PC. Follows the simulation's settings file (MIRVANE_SIM_SETTINGS) to find the
// store; run it in the daemon's namespace (mirvane-ns) to reach the daemon's store.
#include <getopt.h>
#include <jansson.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mirvane_sim.h"

namespace {

constexpr int kUsage = 2;
constexpr int kAbsent = 1;
constexpr int kStoreError = 3;

int Usage(FILE* out) {
  std::fprintf(out,
               "usage: mirvane-param get [KEY]        print the value (JSON) under KEY, or all\n"
               "       mirvane-param set KEY VALUE    VALUE is JSON, or else taken as text\n"
               "       mirvane-param delete KEY\n"
               "       mirvane-param load FILE        set each member of a JSON object (- for "
               "standard input)\n"
               "       mirvane-param --help\n"
               "Keys are dotted: Custom.Dva.Threshold.Detection. Store: %s\n",
               mirvane_param_store_path());
  return out == stdout ? 0 : kUsage;
}

int Report(int result, const char* key) {
  if (result == 0) return 0;
  if (result == -2) {
    std::fprintf(stderr, "mirvane-param: no such key, or a plain value in its way: %s\n", key);
    return kAbsent;
  }
  std::fprintf(stderr, "mirvane-param: cannot read or write the store %s\n",
               mirvane_param_store_path());
  return kStoreError;
}

int Get(const char* key) {
  json_t* value = mirvane_param_get(key);
  if (value == nullptr) {
    std::fprintf(stderr, "mirvane-param: %s is not set\n", key[0] ? key : "the store");
    return kAbsent;
  }
  char* text = json_dumps(value, JSON_ENCODE_ANY | JSON_INDENT(2));
  std::printf("%s\n", text);
  std::free(text);
  json_decref(value);
  return 0;
}

int Set(const char* key, const char* text) {
  json_t* value = json_loads(text, JSON_DECODE_ANY, nullptr);
  if (value == nullptr) value = json_string(text);  // plain text
  if (value == nullptr) {
    std::fprintf(stderr, "mirvane-param: the value is neither JSON nor UTF-8 text\n");
    return kUsage;
  }
  const int r = mirvane_param_set(key, value);
  json_decref(value);
  return Report(r, key);
}

int Load(const char* path) {
  json_error_t error;
  json_t* object =
      std::strcmp(path, "-") == 0 ? json_loadf(stdin, 0, &error) : json_load_file(path, 0, &error);
  if (!json_is_object(object)) {
    std::fprintf(stderr, "mirvane-param: %s: not a JSON object (%s)\n", path,
                 object ? "another value" : error.text);
    json_decref(object);
    return kUsage;
  }
  const int r = mirvane_param_load(object);
  json_decref(object);
  return Report(r, path);
}

}  // namespace

int main(int argc, char** argv) {
  static const option kOptions[] = {{"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
  opterr = 0;  // the usage alone answers a bad option
  // "+": options only before the command; what follows it (a value such as -5) is the command's.
  const int opt = getopt_long(argc, argv, "+", kOptions, nullptr);
  if (opt == 'h') return Usage(stdout);
  if (opt != -1) return Usage(stderr);
  const int words = argc - optind;  // the command and its arguments
  char** word = argv + optind;
  if (words < 1) return Usage(stderr);
  const std::string command = word[0];
  if (command == "get" && words <= 2) return Get(words == 2 ? word[1] : "");
  if (command == "set" && words == 3) return Set(word[1], word[2]);
  if (command == "delete" && words == 2) return Report(mirvane_param_delete(word[1]), word[1]);
  if (command == "load" && words == 2) return Load(word[1]);
  return Usage(stderr);
}

#include "param_store.h"

#include <errno.h>
#include <fcntl.h>
#include <jansson.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "common/file_write.h"
#include "file_util.h"
#include "sim_settings.h"

namespace mirvane {
namespace sim {
namespace {

std::vector<std::string> SplitKey(const std::string& key) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t dot = key.find('.', start);
    parts.push_back(key.substr(start, dot - start));
    if (dot == std::string::npos) return parts;
    start = dot + 1;
  }
}

std::string Join(const std::vector<std::string>& parts, size_t from, size_t to) {
  std::string joined = parts[from];
  for (size_t i = from + 1; i < to; ++i) joined += "." + parts[i];
  return joined;
}

// Where a dotted key leads: the object that holds (or would hold) its final member, that member's
// name (the longest run of parts naming a member at that level, or the next part when none does)
// and how many parts were used to get there. parent is null when a plain value is in the way.
struct Place {
  json_t* parent = nullptr;
  std::string member;
  size_t consumed = 0;  // parts used to reach parent
};

Place Walk(json_t* root, const std::vector<std::string>& parts) {
  Place place;
  place.parent = root;
  size_t i = 0;
  while (i < parts.size()) {
    size_t matched = 0;
    for (size_t j = parts.size(); j > i; --j) {
      if (json_object_get(place.parent, Join(parts, i, j).c_str()) != nullptr) {
        matched = j;
        break;
      }
    }
    if (matched == parts.size() || matched == 0) {
      place.member = Join(parts, i, matched == 0 ? i + 1 : matched);
      place.consumed = i;
      return place;
    }
    json_t* next = json_object_get(place.parent, Join(parts, i, matched).c_str());
    if (!json_is_object(next)) {  // a plain value in the way
      place.parent = nullptr;
      return place;
    }
    place.parent = next;
    i = matched;
  }
  return place;
}

// Sets value (borrowed) under a dotted key, creating the objects still missing on the way.
int SetIn(json_t* root, const std::string& key, json_t* value) {
  if (key.empty()) return -2;
  const std::vector<std::string> parts = SplitKey(key);
  Place place = Walk(root, parts);
  if (place.parent == nullptr) return -2;
  if (place.member != Join(parts, place.consumed, parts.size())) {
    for (size_t i = place.consumed; i + 1 < parts.size(); ++i) {
      json_t* child = json_object();
      json_object_set_new(place.parent, parts[i].c_str(), child);
      place.parent = child;
    }
    place.member = parts.back();
  }
  return json_object_set(place.parent, place.member.c_str(), value) == 0 ? 0 : -1;
}

}  // namespace

json_t* ResolveKey(json_t* root, const std::string& key) {
  if (!json_is_object(root)) return nullptr;
  if (key.empty()) return root;
  const std::vector<std::string> parts = SplitKey(key);
  Place place = Walk(root, parts);
  if (place.parent == nullptr) return nullptr;
  // Only a member that consumed every remaining part is the value asked for.
  const std::string rest = Join(parts, place.consumed, parts.size());
  return place.member == rest ? json_object_get(place.parent, rest.c_str()) : nullptr;
}

std::string CanonicalText(json_t* value) {
  if (value == nullptr) return "";
  char* text = json_dumps(value, JSON_COMPACT | JSON_SORT_KEYS | JSON_ENCODE_ANY);
  std::string result = text != nullptr ? text : "";
  std::free(text);
  return result;
}

json_t* ParamStore::Read() const {
  json_error_t error;
  json_t* root = json_load_file(path_.c_str(), 0, &error);
  if (root == nullptr) {
    return access(path_.c_str(), F_OK) != 0 && errno == ENOENT ? json_object() : nullptr;
  }
  if (!json_is_object(root)) {
    json_decref(root);
    return nullptr;
  }
  return root;
}

int ParamStore::Modify(const std::function<int(json_t* root)>& change) {
  if (!MakeDirs(DirName(path_))) return -1;
  const int lock_fd = open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lock_fd < 0) return -1;
  int result = -1;
  {
    FileLock lock(lock_fd);
    json_t* root = Read();
    if (root != nullptr) {
      result = change(root);
      if (result == 0) {
        char* text = json_dumps(root, JSON_INDENT(2));
        result = text != nullptr && WriteFileAtomically(path_, std::string(text) + "\n") ? 0 : -1;
        std::free(text);
      }
      json_decref(root);
    }
  }
  close(lock_fd);
  return result;
}

int ParamStore::Set(const std::string& key, json_t* value) {
  if (key.empty() || value == nullptr) return -2;
  return Modify([&](json_t* root) { return SetIn(root, key, value); });
}

int ParamStore::Delete(const std::string& key) {
  if (key.empty()) return -2;
  return Modify([&](json_t* root) {
    const std::vector<std::string> parts = SplitKey(key);
    Place place = Walk(root, parts);
    if (place.parent == nullptr || place.member != Join(parts, place.consumed, parts.size())) {
      return -2;
    }
    return json_object_del(place.parent, place.member.c_str()) == 0 ? 0 : -2;
  });
}

int ParamStore::Load(json_t* object) {
  if (!json_is_object(object)) return -2;
  return Modify([&](json_t* root) {
    const char* key;
    json_t* value;
    json_object_foreach(object, key, value) {
      if (int r = SetIn(root, key, value)) return r;
    }
    return 0;
  });
}

ParamStore CurrentParamStore() {
  return ParamStore(CurrentSettings()->param_store);
}

}  // namespace sim
}  // namespace mirvane

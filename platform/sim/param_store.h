// The parameter store's file: one JSON object, addressed by dotted keys. Reads take the file as it
// stands (writers replace it atomically, so a reader never sees half a write); writes are
// read-modify-write under a lock file beside the store, so that concurrent writers of several
// processes never lose each other's changes. Owns nothing but the path; any thread may use it.
#ifndef MIRVANE_PLATFORM_SIM_PARAM_STORE_H
#define MIRVANE_PLATFORM_SIM_PARAM_STORE_H

#include <functional>
#include <string>

typedef struct json_t json_t;

namespace mirvane {
namespace sim {

// The value under a dotted key inside root (borrowed), or nullptr. At each level the longest run
// of dotted parts that names a member is taken, so members whose names hold dots are found too.
json_t* ResolveKey(json_t* root, const std::string& key);

// A canonical text of a value for comparing stored values ("" for none).
std::string CanonicalText(json_t* value);

class ParamStore {
 public:
  explicit ParamStore(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // The whole store (new reference); an absent file reads as an empty object; nullptr when the
  // file cannot be read or holds no JSON object.
  json_t* Read() const;

  // Return 0, -1 when the store cannot be read or written, -2 when the key is absent (delete) or
  // passes through a value that is not an object.
  int Set(const std::string& key, json_t* value);  // value borrowed
  int Delete(const std::string& key);
  int Load(json_t* object);

 private:
  int Modify(const std::function<int(json_t* root)>& change);

  std::string path_;
};

// The store named by the settings in force.
ParamStore CurrentParamStore();

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_PARAM_STORE_H

#include "scene.h"

#include <jansson.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "ai/class_colours.h"
#include "common/object_class.h"

namespace mirvane {
namespace sim {

namespace {

// A small integer hash (the same on every platform) for the background's texture.
uint32_t Hash(uint32_t x, uint32_t y, uint32_t seed) {
  uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ seed * 0xcb1ab31fu;
  h ^= h >> 16;
  h *= 0x7feb352du;
  h ^= h >> 15;
  h *= 0x846ca68bu;
  h ^= h >> 16;
  return h;
}

// splitmix64, for the walkers of "generate".
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  double Unit() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) * 0x1.0p-53;
  }
  double Between(double lo, double hi) { return lo + (hi - lo) * Unit(); }

 private:
  uint64_t state_;
};

uint8_t Clamp8(int v) {
  return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

// Normalised coordinate to an even pixel position (chroma samples cover pixel pairs).
int EvenPixel(double v, uint32_t size) {
  return 2 * static_cast<int>(std::floor(v * size / 2.0 + 0.5));
}

bool ReadRange(json_t* spec, const char* key, double* lo, double* hi) {
  json_t* v = json_object_get(spec, key);
  if (v == nullptr) return true;
  if (json_is_number(v)) {
    *lo = *hi = json_number_value(v);
    return true;
  }
  if (!json_is_array(v) || json_array_size(v) != 2 || !json_is_number(json_array_get(v, 0)) ||
      !json_is_number(json_array_get(v, 1))) {
    return false;
  }
  *lo = json_number_value(json_array_get(v, 0));
  *hi = json_number_value(json_array_get(v, 1));
  return *lo <= *hi;
}

std::string StringOr(json_t* object, const char* key, const char* fallback) {
  const char* v = json_string_value(json_object_get(object, key));
  return v != nullptr ? v : fallback;
}

double NumberOr(json_t* object, const char* key, double fallback) {
  json_t* v = json_object_get(object, key);
  return json_is_number(v) ? json_number_value(v) : fallback;
}

bool ParseObject(json_t* item, SceneObject* object, std::string* error) {
  json_t* keys = json_object_get(item, "keys");
  object->id = static_cast<int>(json_integer_value(json_object_get(item, "id")));
  object->class_id = ClassIdFromName(StringOr(item, "class", ""));
  const std::string where = "object " + std::to_string(object->id) + ": ";
  auto fail = [&](const char* why) {
    *error = where + why;
    return false;
  };
  if (!json_is_integer(json_object_get(item, "id"))) return fail("no id");
  if (object->class_id == dva::kClassNone) return fail("unknown class");
  if (!json_is_array(keys) || json_array_size(keys) == 0) return fail("no keys");
  size_t i;
  json_t* key;
  json_array_foreach(keys, i, key) {
    double v[5];
    if (!json_is_array(key) || json_array_size(key) != 5) {
      return fail("a key is not [t, xmin, ymin, xmax, ymax]");
    }
    for (size_t k = 0; k < 5; ++k) {
      if (!json_is_number(json_array_get(key, k))) return fail("a key holds a non-number");
      v[k] = json_number_value(json_array_get(key, k));
    }
    if (v[3] <= v[1] || v[4] <= v[2]) return fail("a box with no area");
    if (!object->keys.empty() && v[0] < object->keys.back().t)
      return fail("keys out of time order");
    object->keys.push_back(SceneKey{v[0], NormBox{v[1], v[2], v[3], v[4]}});
  }
  return true;
}

// Walkers crossing the picture sideways, entering between "from" and "to", some stopping.
bool Generate(json_t* spec, int default_first_id, std::vector<SceneObject>* objects,
              std::string* error) {
  const int class_id = ClassIdFromName(StringOr(spec, "class", ""));
  const json_int_t count = json_integer_value(json_object_get(spec, "count"));
  double h_lo = 0.1, h_hi = 0.2, s_lo = 0.05, s_hi = 0.12;
  const double from = NumberOr(spec, "from", 0.0);
  const double to = NumberOr(spec, "to", from);
  const double aspect = NumberOr(spec, "aspect", dva::IsPerson(class_id) ? 0.45 : 2.0);
  const double stop_chance = NumberOr(spec, "stop", 0.0);
  const json_int_t first_id = json_is_integer(json_object_get(spec, "first_id"))
                                  ? json_integer_value(json_object_get(spec, "first_id"))
                                  : default_first_id;
  auto fail = [&](const char* why) {
    *error = std::string("generate: ") + why;
    return false;
  };
  if (class_id == dva::kClassNone) return fail("unknown class");
  if (count < 0 || count > 1000) return fail("count must be from 0 to 1000");
  if (!ReadRange(spec, "height", &h_lo, &h_hi) || !ReadRange(spec, "speed", &s_lo, &s_hi) ||
      h_lo <= 0 || h_hi >= 0.6 || s_lo <= 0) {
    return fail("bad height or speed");
  }
  Random random(static_cast<uint64_t>(json_integer_value(json_object_get(spec, "seed"))));
  for (json_int_t i = 0; i < count; ++i) {
    SceneObject object;
    object.id = static_cast<int>(first_id + i);
    object.class_id = class_id;
    const double enter = random.Between(from, to);
    const double h = random.Between(h_lo, h_hi);
    const double w = h * aspect * 9.0 / 16.0;  // pixel aspect of a 16:9 picture
    const double ymax = random.Between(0.35 + h, 0.98);
    const double speed = random.Between(s_lo, s_hi);
    const bool rightwards = random.Unit() < 0.5;
    const bool stops = random.Unit() < stop_chance;
    const double stop_at = random.Between(0.15, 0.75);
    const double stop_for = random.Between(2.0, 8.0);
    auto box_at_x = [&](double x) { return NormBox{x, ymax - h, x + w, ymax}; };
    const double start = rightwards ? -w : 1.0;
    const double end = rightwards ? 1.0 : -w;
    double t = enter;
    object.keys.push_back(SceneKey{t, box_at_x(start)});
    if (stops) {
      const double x = rightwards ? stop_at : 1.0 - stop_at - w;
      t += std::fabs(x - start) / speed;
      object.keys.push_back(SceneKey{t, box_at_x(x)});
      t += stop_for;
      object.keys.push_back(SceneKey{t, box_at_x(x)});
      t += std::fabs(end - x) / speed;
    } else {
      t += std::fabs(end - start) / speed;
    }
    object.keys.push_back(SceneKey{t, box_at_x(end)});
    objects->push_back(std::move(object));
  }
  return true;
}

}  // namespace

Yuv ClassColour(int class_id) {
  const ai::ClassColour& c = dva::IsKnownClass(class_id)
                                 ? ai::kClassColours[dva::ClassIndex(class_id)]
                                 : ai::kNoClassColour;
  return Yuv{static_cast<uint8_t>(c.y), static_cast<uint8_t>(c.u), static_cast<uint8_t>(c.v)};
}

int ClassIdFromName(const std::string& name) {
  return dva::ClassIdOfName(name.c_str());
}

bool ParseScene(const std::string& text, Scene* scene, std::string* error) {
  json_error_t jerr;
  json_t* root = json_loads(text.c_str(), 0, &jerr);
  if (root == nullptr) {
    *error = std::string("not JSON: ") + jerr.text + " at line " + std::to_string(jerr.line);
    return false;
  }
  Scene parsed;
  bool ok = true;
  parsed.name = StringOr(root, "name", "");
  parsed.duration = NumberOr(root, "duration", 0.0);
  parsed.background_seed = static_cast<uint64_t>(
      json_integer_value(json_object_get(json_object_get(root, "background"), "seed")));
  if (!(parsed.duration > 0.0 && parsed.duration <= 24 * 3600.0)) {
    *error = "duration must be above 0 seconds";
    ok = false;
  }
  json_t* objects = json_object_get(root, "objects");
  size_t i;
  json_t* item;
  int next_id = 1;
  json_array_foreach(objects, i, item) {
    if (!ok) break;
    SceneObject object;
    ok = ParseObject(item, &object, error);
    next_id = std::max(next_id, object.id + 1);
    parsed.objects.push_back(std::move(object));
  }
  json_array_foreach(json_object_get(root, "generate"), i, item) {
    if (!ok) break;
    ok = Generate(item, std::max(next_id, 1000), &parsed.objects, error);
    next_id = parsed.objects.empty() ? next_id : parsed.objects.back().id + 1;
  }
  json_decref(root);
  if (ok) *scene = std::move(parsed);
  return ok;
}

bool LoadScene(const std::string& name_or_path, Scene* scene, std::string* error) {
  if (const char* text = ShippedSceneText(name_or_path)) return ParseScene(text, scene, error);
  FILE* f = std::fopen(name_or_path.c_str(), "rb");
  if (f == nullptr) {
    *error = "no shipped scene and no scene file named " + name_or_path;
    return false;
  }
  std::string text;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  std::fclose(f);
  if (!ParseScene(text, scene, error)) {
    *error = name_or_path + ": " + *error;
    return false;
  }
  return true;
}

bool BoxAt(const SceneObject& object, double t, NormBox* box) {
  const std::vector<SceneKey>& keys = object.keys;
  if (keys.empty() || t < keys.front().t || t > keys.back().t) return false;
  size_t next = 1;
  while (next < keys.size() && keys[next].t < t) ++next;
  if (next == keys.size() || keys[next].t == keys[next - 1].t) {
    *box = keys[next == keys.size() ? next - 1 : next].box;
    return true;
  }
  const SceneKey& a = keys[next - 1];
  const SceneKey& b = keys[next];
  const double f = (t - a.t) / (b.t - a.t);
  box->xmin = a.box.xmin + (b.box.xmin - a.box.xmin) * f;
  box->ymin = a.box.ymin + (b.box.ymin - a.box.ymin) * f;
  box->xmax = a.box.xmax + (b.box.xmax - a.box.xmax) * f;
  box->ymax = a.box.ymax + (b.box.ymax - a.box.ymax) * f;
  return true;
}

SceneRenderer::SceneRenderer(Scene scene, uint32_t width, uint32_t height, double fps)
    : scene_(std::move(scene)),
      width_(width),
      height_(height),
      fps_(fps),
      frame_count_(
          std::max<int64_t>(1, static_cast<int64_t>(std::floor(scene_.duration * fps + 0.5)))),
      background_(static_cast<size_t>(width) * height * 3 / 2) {
  const uint32_t seed = static_cast<uint32_t>(scene_.background_seed);
  const int horizon = static_cast<int>(height_ * 2 / 5);
  const int lane = static_cast<int>(height_ * 18 / 25);
  const int line = std::max(2, static_cast<int>(height_ / 180));
  for (uint32_t y = 0; y < height_; ++y) {
    uint8_t* row = &background_[static_cast<size_t>(y) * width_];
    const int iy = static_cast<int>(y);
    // Walls and windows above the kerb, asphalt below, a dashed lane line.
    const int base = iy < horizon ? 150 - 30 * iy / horizon : 100;
    const bool on_lane = iy >= lane && iy < lane + line;
    const bool on_kerb = iy >= horizon && iy < horizon + line;
    const uint32_t cy = y / 64, fy = y % 64;
    for (uint32_t x = 0; x < width_; ++x) {
      const uint32_t cx = x / 64, fx = x % 64;
      // Value noise on a 64-pixel lattice, interpolated in integers.
      const int l00 = Hash(cx, cy, seed) & 0xff, l10 = Hash(cx + 1, cy, seed) & 0xff;
      const int l01 = Hash(cx, cy + 1, seed) & 0xff, l11 = Hash(cx + 1, cy + 1, seed) & 0xff;
      const int top = l00 * static_cast<int>(64 - fx) + l10 * static_cast<int>(fx);
      const int bottom = l01 * static_cast<int>(64 - fx) + l11 * static_cast<int>(fx);
      const int smooth = (top * static_cast<int>(64 - fy) + bottom * static_cast<int>(fy)) >> 12;
      const int grain = static_cast<int>(Hash(x, y, seed ^ 0x5eed) & 7) - 4;
      int v = base + (smooth - 128) * 36 / 256 + grain;
      if (iy < horizon && (x / 48) % 3 == 1 && (y / 40) % 2 == 1) v -= 25;  // windows
      if (on_kerb || (on_lane && (x / 80) % 2 == 0)) v = 190 + grain;
      row[x] = Clamp8(v < 16 ? 16 : v > 235 ? 235 : v);
    }
  }
  uint8_t* chroma = &background_[static_cast<size_t>(width_) * height_];
  for (uint32_t y = 0; y < height_ / 2; ++y) {
    for (uint32_t x = 0; x < width_; ++x) {
      const int spread = 2 * kBackgroundChromaSpread / 3;
      chroma[static_cast<size_t>(y) * width_ + x] = static_cast<uint8_t>(
          128 + static_cast<int>(Hash(x / 16, y / 8, seed ^ 0xc0c0) % (2 * spread + 1)) - spread);
    }
  }
}

void SceneRenderer::GroundTruth(int64_t index, std::vector<GroundTruthBox>* truth) const {
  truth->clear();
  const double t = static_cast<double>(index) / fps_;
  const int w = static_cast<int>(width_), h = static_cast<int>(height_);
  for (const SceneObject& object : scene_.objects) {
    NormBox box;
    if (!BoxAt(object, t, &box)) continue;
    GroundTruthBox g;
    g.object_id = object.id;
    g.class_id = object.class_id;
    g.x0 = std::max(0, EvenPixel(box.xmin, width_));
    g.y0 = std::max(0, EvenPixel(box.ymin, height_));
    g.x1 = std::min(w, EvenPixel(box.xmax, width_));
    g.y1 = std::min(h, EvenPixel(box.ymax, height_));
    if (g.x1 > g.x0 && g.y1 > g.y0) truth->push_back(g);
  }
}

void SceneRenderer::Render(int64_t index, const Nv12Image& picture,
                           std::vector<GroundTruthBox>* truth) const {
  for (uint32_t y = 0; y < height_; ++y) {
    std::memcpy(picture.y + static_cast<size_t>(y) * picture.stride,
                &background_[static_cast<size_t>(y) * width_], width_);
  }
  const uint8_t* chroma = &background_[static_cast<size_t>(width_) * height_];
  for (uint32_t y = 0; y < height_ / 2; ++y) {
    std::memcpy(picture.uv + static_cast<size_t>(y) * picture.stride,
                chroma + static_cast<size_t>(y) * width_, width_);
  }
  GroundTruth(index, truth);
  for (const GroundTruthBox& box : *truth) DrawObject(box, picture);
}

void SceneRenderer::DrawObject(const GroundTruthBox& box, const Nv12Image& picture) const {
  const Yuv colour = ClassColour(box.class_id);
  const int border = std::max(2, static_cast<int>(height_ / 270) & ~1);
  // Stripes give the object a texture of its own that moves with it.
  for (int y = box.y0; y < box.y1; ++y) {
    uint8_t* row = picture.y + static_cast<size_t>(y) * picture.stride;
    const int stripe = ((y - box.y0) / 4) % 2 == 0 ? 12 : -12;
    for (int x = box.x0; x < box.x1; ++x) {
      const bool edge = y - box.y0 < border || box.y1 - y <= border || x - box.x0 < border ||
                        box.x1 - x <= border;
      row[x] = edge ? static_cast<uint8_t>(colour.y / 2) : Clamp8(colour.y + stripe);
    }
  }
  for (int y = box.y0 / 2; y < (box.y1 + 1) / 2; ++y) {
    uint8_t* row = picture.uv + static_cast<size_t>(y) * picture.stride;
    for (int x = box.x0 / 2; x < (box.x1 + 1) / 2; ++x) {
      row[2 * x] = colour.u;
      row[2 * x + 1] = colour.v;
    }
  }
}

namespace {

// The scene renderer as a frame source.
class SceneSource : public FrameSource {
 public:
  SceneSource(Scene scene, uint32_t width, uint32_t height, double fps)
      : renderer_(std::move(scene), width, height, fps) {}
  int64_t FrameCount() const override { return renderer_.FrameCount(); }
  std::string Describe() const override { return "scene=" + renderer_.scene().name; }
  void Render(int64_t index, const Nv12Image& picture,
              std::vector<GroundTruthBox>* truth) override {
    renderer_.Render(index, picture, truth);
  }

 private:
  SceneRenderer renderer_;
};

}  // namespace

std::unique_ptr<FrameSource> MakeFrameSource(const std::string& scene_name, uint32_t width,
                                             uint32_t height, double fps, std::string* error) {
  Scene scene;
  if (!LoadScene(scene_name, &scene, error)) return nullptr;
  if (scene.name.empty()) scene.name = scene_name;
  return std::make_unique<SceneSource>(std::move(scene), width, height, fps);
}

}  // namespace sim
}  // namespace mirvane

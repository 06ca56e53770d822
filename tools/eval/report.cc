// Rendering of an evaluation: the readable table and the JSON object.
#include <jansson.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "evaluation.h"
#include "json_input.h"

namespace mirvane {
namespace eval {
namespace {

std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Printf(const char* format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  return text;
}

// A ratio with three decimals, "-" when undefined.
std::string Ratio(double value) {
  return std::isfinite(value) ? Printf("%.3f", value) : std::string("-");
}

std::string Seconds(double value) {
  return std::isfinite(value) ? Printf("%+.2f s", value) : std::string("-");
}

std::string Object(int64_t object) {
  return object == kNoObject ? std::string("none") : std::to_string(object);
}

std::string DescribeExpectation(const ExpectedTrigger& expected) {
  std::string text =
      Printf("%-6s object %s", RuleName(expected.rule), Object(expected.object).c_str());
  if (expected.rule == RuleKind::kFence) text += Printf(" direction %d", expected.direction);
  return text + Printf(" at %.2f s", expected.time);
}

void AppendRules(const RuleAccuracy& rules, std::string* out) {
  *out += "Rules\n";
  *out += "  rule    expected  found  missed  false  mean delay  max delay\n";
  for (RuleKind rule : {RuleKind::kRegion, RuleKind::kFence}) {
    const RuleTally& t = rule == RuleKind::kRegion ? rules.region : rules.fence;
    *out += Printf("  %-6s  %8lld  %5lld  %6lld  %5lld  %10s  %9s\n", RuleName(rule),
                   static_cast<long long>(t.expected), static_cast<long long>(t.found),
                   static_cast<long long>(t.missed), static_cast<long long>(t.false_triggers),
                   Seconds(t.mean_delay).c_str(), Seconds(t.max_delay).c_str());
  }
  for (const ExpectationOutcome& o : rules.outcomes) {
    *out += "  " + DescribeExpectation(o.expected) + ": ";
    *out += o.found ? Printf("found, track #%lld at %.2f s (%s)",
                             static_cast<long long>(o.trigger.tracking_id), o.trigger.time,
                             Seconds(o.delay_seconds).c_str())
                    : std::string("MISSED");
    *out += "\n";
  }
  for (const FalseTrigger& f : rules.false_triggers) {
    std::string what = RuleName(f.trigger.rule);
    if (f.trigger.rule == RuleKind::kFence) what += Printf(" direction %d", f.trigger.direction);
    *out += Printf("  FALSE %s: track #%lld at %.2f s (object %s): %s\n", what.c_str(),
                   static_cast<long long>(f.trigger.tracking_id), f.trigger.time,
                   Object(f.trigger.object).c_str(), f.reason.c_str());
  }
}

// JSON number, or null when undefined.
json_t* Number(double value) {
  return std::isfinite(value) ? json_real(value) : json_null();
}
json_t* Integer(int64_t value) {
  return json_integer(static_cast<json_int_t>(value));
}

json_t* ClearJson(const ClearMot& c) {
  return json_pack(
      "{s:o,s:o,s:o,s:o,s:I,s:I,s:I,s:I,s:I,s:I,s:I,s:I,s:I,s:I,s:I,s:I}", "mota", Number(c.Mota()),
      "motp", Number(c.Motp()), "recall", Number(c.Recall()), "precision", Number(c.Precision()),
      "matches", static_cast<json_int_t>(c.matches), "misses", static_cast<json_int_t>(c.misses),
      "false_positives", static_cast<json_int_t>(c.false_positives), "switches",
      static_cast<json_int_t>(c.switches), "fragmentations",
      static_cast<json_int_t>(c.fragmentations), "mostly_tracked",
      static_cast<json_int_t>(c.mostly_tracked), "partially_tracked",
      static_cast<json_int_t>(c.partially_tracked), "mostly_lost",
      static_cast<json_int_t>(c.mostly_lost), "truth_boxes", static_cast<json_int_t>(c.truth_boxes),
      "hypothesis_boxes", static_cast<json_int_t>(c.hypothesis_boxes), "objects",
      static_cast<json_int_t>(c.truth_ids), "tracks", static_cast<json_int_t>(c.hypothesis_ids));
}

json_t* IdentityJson(const IdentityScores& s) {
  return json_pack("{s:o,s:o,s:o,s:I,s:I,s:I}", "idf1", Number(s.Idf1()), "idp", Number(s.Idp()),
                   "idr", Number(s.Idr()), "idtp", static_cast<json_int_t>(s.idtp), "idfp",
                   static_cast<json_int_t>(s.idfp), "idfn", static_cast<json_int_t>(s.idfn));
}

json_t* HotaPartsJson(const HotaParts& p) {
  return json_pack("{s:o,s:o,s:o,s:o,s:o,s:o,s:o,s:o}", "hota", Number(p.hota), "det_a",
                   Number(p.det_a), "ass_a", Number(p.ass_a), "loc_a", Number(p.loc_a), "det_re",
                   Number(p.det_re), "det_pr", Number(p.det_pr), "ass_re", Number(p.ass_re),
                   "ass_pr", Number(p.ass_pr));
}

json_t* HotaJson(const HotaScores& s) {
  json_t* result = HotaPartsJson(s.mean);
  json_t* alphas = json_array();
  for (size_t a = 0; a < kHotaAlphaCount; ++a) {
    const HotaAtAlpha& at = s.at_alpha[a];
    json_t* item = HotaPartsJson(at);
    json_object_set_new(item, "alpha", json_real(HotaAlpha(a)));
    json_object_set_new(item, "tp", Integer(at.tp));
    json_object_set_new(item, "fn", Integer(at.fn));
    json_object_set_new(item, "fp", Integer(at.fp));
    json_array_append_new(alphas, item);
  }
  json_object_set_new(result, "at_alpha", alphas);
  return result;
}

json_t* TriggerJson(const ReportedTrigger& t) {
  json_t* item = json_pack("{s:s,s:I,s:I,s:f}", "rule", RuleName(t.rule), "tracking_id",
                           static_cast<json_int_t>(t.tracking_id), "timestamp",
                           static_cast<json_int_t>(t.timestamp), "time", t.time);
  if (t.rule == RuleKind::kFence) json_object_set_new(item, "direction", json_integer(t.direction));
  json_object_set_new(item, "object", t.object == kNoObject ? json_null() : Integer(t.object));
  return item;
}

json_t* RulesJson(const RuleAccuracy& rules) {
  json_t* result = json_object();
  for (RuleKind rule : {RuleKind::kRegion, RuleKind::kFence}) {
    const RuleTally& t = rule == RuleKind::kRegion ? rules.region : rules.fence;
    json_object_set_new(
        result, RuleName(rule),
        json_pack("{s:I,s:I,s:I,s:I,s:o,s:o}", "expected", static_cast<json_int_t>(t.expected),
                  "found", static_cast<json_int_t>(t.found), "missed",
                  static_cast<json_int_t>(t.missed), "false",
                  static_cast<json_int_t>(t.false_triggers), "mean_delay", Number(t.mean_delay),
                  "max_delay", Number(t.max_delay)));
  }
  json_t* expected = json_array();
  for (const ExpectationOutcome& o : rules.outcomes) {
    json_t* item = json_pack("{s:s,s:I,s:f,s:b}", "rule", RuleName(o.expected.rule), "object",
                             static_cast<json_int_t>(o.expected.object), "time", o.expected.time,
                             "found", o.found);
    if (o.expected.rule == RuleKind::kFence) {
      json_object_set_new(item, "direction", json_integer(o.expected.direction));
    }
    if (o.found) {
      json_object_set_new(item, "trigger", TriggerJson(o.trigger));
      json_object_set_new(item, "delay", json_real(o.delay_seconds));
    }
    json_array_append_new(expected, item);
  }
  json_object_set_new(result, "expected", expected);
  json_t* false_triggers = json_array();
  for (const FalseTrigger& f : rules.false_triggers) {
    json_t* item = TriggerJson(f.trigger);
    json_object_set_new(item, "reason", json_string(f.reason.c_str()));
    json_array_append_new(false_triggers, item);
  }
  json_object_set_new(result, "false", false_triggers);
  return result;
}

}  // namespace

std::string FormatText(const Evaluation& e) {
  const ClearMot& c = e.clear;
  const IdentityScores& i = e.identity;
  const HotaParts& h = e.hota.mean;
  std::string out;
  out += Printf("Run: %zu frames (truth %zu, reported %zu, both %zu); %lld objects, %lld tracks",
                e.frames, e.truth_frames, e.reported_frames, e.matched_frames,
                static_cast<long long>(c.truth_ids), static_cast<long long>(c.hypothesis_ids));
  out += e.options.class_name.empty() ? "\n" : "; class " + e.options.class_name + "\n";
  if (e.unknown_frames > 0) {
    out += Printf("  warning: %zu reported frames are not in the ground truth (another run?)\n",
                  e.unknown_frames);
  }
  out += Printf("CLEAR MOT (IoU >= %.2f)\n", e.options.iou_threshold);
  out += Printf("  MOTA %7s   MOTP %7s   recall %7s   precision %7s\n", Ratio(c.Mota()).c_str(),
                Ratio(c.Motp()).c_str(), Ratio(c.Recall()).c_str(), Ratio(c.Precision()).c_str());
  out += Printf(
      "  matches %lld   misses %lld   false positives %lld   ID switches %lld   "
      "fragmentations %lld\n",
      static_cast<long long>(c.matches), static_cast<long long>(c.misses),
      static_cast<long long>(c.false_positives), static_cast<long long>(c.switches),
      static_cast<long long>(c.fragmentations));
  out += Printf("  mostly tracked %lld   partially tracked %lld   mostly lost %lld\n",
                static_cast<long long>(c.mostly_tracked),
                static_cast<long long>(c.partially_tracked), static_cast<long long>(c.mostly_lost));
  out += Printf("Identity (IoU >= %.2f)\n", e.options.iou_threshold);
  out += Printf("  IDF1 %7s   IDP  %7s   IDR    %7s   (IDTP %lld, IDFP %lld, IDFN %lld)\n",
                Ratio(i.Idf1()).c_str(), Ratio(i.Idp()).c_str(), Ratio(i.Idr()).c_str(),
                static_cast<long long>(i.idtp), static_cast<long long>(i.idfp),
                static_cast<long long>(i.idfn));
  out += "HOTA (mean over alpha 0.05 .. 0.95)\n";
  out += Printf("  HOTA %7s   DetA %7s   AssA   %7s   LocA      %7s\n", Ratio(h.hota).c_str(),
                Ratio(h.det_a).c_str(), Ratio(h.ass_a).c_str(), Ratio(h.loc_a).c_str());
  out += Printf("  DetRe %6s   DetPr %6s   AssRe  %7s   AssPr     %7s\n", Ratio(h.det_re).c_str(),
                Ratio(h.det_pr).c_str(), Ratio(h.ass_re).c_str(), Ratio(h.ass_pr).c_str());
  if (e.has_rules) AppendRules(e.rules, &out);
  return out;
}

std::string FormatJson(const Evaluation& e) {
  JsonRef root(json_object());
  json_object_set_new(root.get(), "frames",
                      json_pack("{s:I,s:I,s:I,s:I,s:I}", "total", static_cast<json_int_t>(e.frames),
                                "truth", static_cast<json_int_t>(e.truth_frames), "reported",
                                static_cast<json_int_t>(e.reported_frames), "both",
                                static_cast<json_int_t>(e.matched_frames), "unknown",
                                static_cast<json_int_t>(e.unknown_frames)));
  json_object_set_new(root.get(), "iou_threshold", json_real(e.options.iou_threshold));
  json_object_set_new(
      root.get(), "class",
      e.options.class_name.empty() ? json_null() : json_string(e.options.class_name.c_str()));
  json_object_set_new(root.get(), "clear", ClearJson(e.clear));
  json_object_set_new(root.get(), "identity", IdentityJson(e.identity));
  json_object_set_new(root.get(), "hota", HotaJson(e.hota));
  if (e.has_rules) json_object_set_new(root.get(), "rules", RulesJson(e.rules));
  char* text = json_dumps(root.get(), JSON_INDENT(2) | JSON_REAL_PRECISION(10));
  std::string result = text != nullptr ? text : "";
  std::free(text);
  return result + "\n";
}

}  // namespace eval
}  // namespace mirvane

#include "html_page.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <set>

#include "common/object_class.h"

namespace mirvane {
namespace report {
namespace {

constexpr double kTimelineWidth = 900;
constexpr double kTimelineRowHeight = 14;
constexpr double kTimelineLabelWidth = 150;
constexpr double kLabelHeight = 16;

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
  char buffer[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  return buffer;
}

std::string Ratio(double value) {
  return std::isnan(value) ? "&ndash;" : Format("%.3f", value);
}
std::string Count(int64_t value) {
  return std::to_string(value);
}
std::string Seconds(double value) {
  return std::isnan(value) ? "&ndash;" : Format("%.2f s", value);
}

// Class colours of the boxes, by class name; unknown classes in grey.
const char* ClassColour(const std::string& class_name) {
  switch (dva::ClassIdOfName(class_name.c_str())) {
    case dva::kClassPerson:
      return "#e6194b";
    case dva::kClassVehicle:
      return "#3cb44b";
    case dva::kClassOther:
      return "#4363d8";
    case dva::kClassVehicle2:
      return "#f58231";
    default:
      return "#999999";
  }
}

std::string FlagText(int flags) {
  std::string text;
  if ((flags & eval::kRegionFlag) != 0) text += " R";
  if ((flags & eval::kFenceDirection1Flag) != 0) text += " F1";
  if ((flags & eval::kFenceDirection2Flag) != 0) text += " F2";
  return text;
}

std::string Points(const std::vector<dva::Point>& points, int width, int height) {
  std::string text;
  for (const dva::Point& p : points) {
    text +=
        Format("%.1f,%.1f ", static_cast<double>(p.x) * width, static_cast<double>(p.y) * height);
  }
  return text;
}

std::string Row(const std::vector<std::string>& cells, const char* tag = "td") {
  std::string row = "<tr>";
  for (const std::string& cell : cells) row += Format("<%s>", tag) + cell + Format("</%s>", tag);
  return row + "</tr>\n";
}

std::string MetricsTable(const eval::Evaluation& e) {
  const eval::ClearMot& c = e.clear;
  std::string html = "<table class=\"metrics\">\n";
  html += Row({"frames", "MOTA", "MOTP", "IDF1", "IDP", "IDR", "HOTA", "DetA", "AssA", "recall",
               "precision", "ID switches", "fragments", "MT / PT / ML", "misses", "false"},
              "th");
  html += Row(
      {Count(static_cast<int64_t>(e.frames)), Ratio(c.Mota()), Ratio(c.Motp()),
       Ratio(e.identity.Idf1()), Ratio(e.identity.Idp()), Ratio(e.identity.Idr()),
       Ratio(e.hota.mean.hota), Ratio(e.hota.mean.det_a), Ratio(e.hota.mean.ass_a),
       Ratio(c.Recall()), Ratio(c.Precision()), Count(c.switches), Count(c.fragmentations),
       Count(c.mostly_tracked) + " / " + Count(c.partially_tracked) + " / " + Count(c.mostly_lost),
       Count(c.misses), Count(c.false_positives)});
  html += "</table>\n";
  if (e.has_rules) {
    html += "<table class=\"metrics\">\n";
    html += Row({"rule", "expected", "found", "missed", "false", "mean delay", "max delay"}, "th");
    for (const auto& rule :
         {std::make_pair("region", &e.rules.region), std::make_pair("fence", &e.rules.fence)}) {
      const eval::RuleTally& t = *rule.second;
      html += Row({rule.first, Count(t.expected), Count(t.found), Count(t.missed),
                   Count(t.false_triggers), Seconds(t.mean_delay), Seconds(t.max_delay)});
    }
    html += "</table>\n";
  }
  return html;
}

std::string Timeline(const RunReport& run) {
  std::set<int64_t> ids;
  for (const TimelineRow& row : run.timeline) {
    for (const TriggerSpan& span : row.spans) ids.insert(span.tracking_id);
  }
  if (ids.empty()) return "<p>No object was flagged by a rule.</p>\n";
  const double duration = std::max(run.duration, 1.0);
  const double scale = (kTimelineWidth - kTimelineLabelWidth) / duration;
  const double frame_width = run.run.fps > 0 ? scale / run.run.fps : 2.0;
  std::string html;
  for (const TimelineRow& row : run.timeline) {
    std::vector<int64_t> row_ids;
    for (const TriggerSpan& span : row.spans) {
      if (row_ids.empty() || row_ids.back() != span.tracking_id)
        row_ids.push_back(span.tracking_id);
    }
    html += "<h4>" + HtmlEscape(row.rule) + Format(": %zu tracks</h4>\n", row_ids.size());
    if (row_ids.empty()) continue;
    const double height = kTimelineRowHeight * (static_cast<double>(row_ids.size()) + 1);
    html +=
        Format("<svg class=\"timeline\" width=\"%.0f\" height=\"%.0f\">\n", kTimelineWidth, height);
    for (double t = 0; t <= duration; t += std::max(1.0, std::ceil(duration / 10))) {
      const double x = kTimelineLabelWidth + t * scale;
      html += Format("<line x1=\"%.1f\" y1=\"0\" x2=\"%.1f\" y2=\"%.0f\" class=\"tick\"/>", x, x,
                     height - kTimelineRowHeight);
      html += Format("<text x=\"%.1f\" y=\"%.0f\">%.0f s</text>\n", x, height - 2, t);
    }
    for (size_t i = 0; i < row_ids.size(); ++i) {
      const double y = kTimelineRowHeight * static_cast<double>(i);
      html += Format("<text x=\"0\" y=\"%.0f\">track %lld</text>", y + kTimelineRowHeight - 3,
                     static_cast<long long>(row_ids[i]));
      for (const TriggerSpan& span : row.spans) {
        if (span.tracking_id != row_ids[i]) continue;
        html += Format(
            "<rect x=\"%.1f\" y=\"%.0f\" width=\"%.1f\" height=\"%.0f\" class=\"span\">"
            "<title>track %lld: %.2f to %.2f s</title></rect>",
            kTimelineLabelWidth + span.from * scale, y + 2,
            std::max(2.0, (span.to - span.from) * scale + frame_width), kTimelineRowHeight - 4,
            static_cast<long long>(span.tracking_id), span.from, span.to);
      }
      html += "\n";
    }
    html += "</svg>\n";
  }
  return html;
}

std::string Frame(const RunReport& run, const SampledFrame& sample) {
  const eval::RunFrame& frame = run.run.frames[sample.run_frame];
  const int w = run.width;
  const int h = run.height;
  std::string html = "<figure>";
  html += Format("<svg viewBox=\"0 0 %d %d\" width=\"%d\" height=\"%d\">", w, h, w, h);
  html +=
      "<image href=\"" + HtmlEscape(sample.image) + Format("\" width=\"%d\" height=\"%d\"/>", w, h);
  for (const dva::Polygon& polygon : run.rules.region) {
    html += "<polygon class=\"region\" points=\"" + Points(polygon, w, h) + "\"/>";
  }
  if (run.rules.fence.size() >= 2) {
    html += "<polyline class=\"fence\" points=\"" + Points(run.rules.fence, w, h) + "\"/>";
  }
  for (const eval::TruthObject& object : frame.truth) {
    html +=
        Format("<rect class=\"truth\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/>",
               object.box.xmin * w, object.box.ymin * h, (object.box.xmax - object.box.xmin) * w,
               (object.box.ymax - object.box.ymin) * h);
  }
  for (const eval::ReportedObject& object : frame.reported_objects) {
    const char* colour = ClassColour(object.class_name);
    html += Format(
        "<rect class=\"object\" stroke=\"%s\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" "
        "height=\"%.1f\"/>",
        colour, object.box.xmin * w, object.box.ymin * h, (object.box.xmax - object.box.xmin) * w,
        (object.box.ymax - object.box.ymin) * h);
    // Above the box, or inside it when the box touches the top edge.
    const double top = object.box.ymin * h;
    html += Format("<text class=\"label\" fill=\"%s\" x=\"%.1f\" y=\"%.1f\">#%lld ", colour,
                   object.box.xmin * w, top >= kLabelHeight ? top - 3 : top + kLabelHeight,
                   static_cast<long long>(object.tracking_id)) +
            HtmlEscape(object.class_name + FlagText(object.flags)) + "</text>";
  }
  html += "</svg>";
  html +=
      Format("<figcaption>frame %lld &middot; %.2f s &middot; %zu reported, %zu true</figcaption>",
             static_cast<long long>(sample.scene_frame), sample.time, frame.reported_objects.size(),
             frame.truth.size());
  return html + "</figure>\n";
}

std::string Gallery(const RunReport& run) {
  if (run.gallery.empty()) return "<p>No snapshots were kept for this run.</p>\n";
  std::string html;
  for (const GalleryTrack& track : run.gallery) {
    html +=
        Format("<div class=\"track\"><h4>track %lld ", static_cast<long long>(track.tracking_id)) +
        HtmlEscape(track.class_name) + Format(" (%zu)</h4>", track.images.size());
    for (const std::string& image : track.images) {
      html += "<img src=\"" + HtmlEscape(image) + "\" alt=\"snapshot\">";
    }
    html += "</div>\n";
  }
  return html;
}

constexpr const char* kStyle =
    "body{font-family:sans-serif;margin:1em 2em;background:#fafafa}"
    "table.metrics{border-collapse:collapse;margin:.5em 0}"
    "table.metrics td,table.metrics th{border:1px solid #bbb;padding:2px 8px;text-align:right}"
    "figure{display:inline-block;margin:4px}figure svg{max-width:480px;height:auto}"
    "figcaption{font-size:12px}"
    ".region{fill:rgba(255,255,0,.15);stroke:#cc0;stroke-width:2}"
    ".fence{fill:none;stroke:#f0f;stroke-width:4}"
    ".truth{fill:none;stroke:#fff;stroke-width:1.5;stroke-dasharray:6 4}"
    ".object{fill:none;stroke-width:3}.label{font-size:16px;font-weight:bold}"
    ".timeline text{font-size:11px}.tick{stroke:#ddd}.span{fill:#d33}"
    ".track img{height:90px;margin:2px}.track h4{margin:.3em 0}";

}  // namespace

std::string HtmlEscape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string RenderPage(const std::vector<RunReport>& runs) {
  std::string html =
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\">"
      "<title>mirvane run report</title><style>";
  html += kStyle;
  html += "</style></head><body>\n<h1>mirvane run report</h1>\n<ul>";
  for (const RunReport& run : runs) {
    html +=
        "<li><a href=\"#run-" + HtmlEscape(run.name) + "\">" + HtmlEscape(run.name) + "</a></li>";
  }
  html +=
      "</ul>\n<p>Boxes: reported objects in the colour of their class with tracking id, class "
      "and trigger flags (R region, F1/F2 fence direction); dashed white: ground truth. "
      "Yellow: detection region; magenta: fence.</p>\n";
  for (const RunReport& run : runs) {
    html += "<section id=\"run-" + HtmlEscape(run.name) + "\"><h2>" + HtmlEscape(run.name) +
            " (scene " + HtmlEscape(run.scene) + Format(", %.1f s)</h2>\n", run.duration);
    html += "<h3>Metrics</h3>\n" + MetricsTable(run.evaluation);
    html += "<h3>Triggers per rule</h3>\n" + Timeline(run);
    html += Format("<h3>Frames (%zu sampled)</h3>\n<div class=\"frames\">\n", run.frames.size());
    for (const SampledFrame& sample : run.frames) html += Frame(run, sample);
    html += "</div>\n<h3>Snapshots by tracking id</h3>\n" + Gallery(run) + "</section>\n";
  }
  return html + "</body></html>\n";
}

}  // namespace report
}  // namespace mirvane

// The visual report as one static HTML page (no script, no server): per run the metrics table,
// the trigger timeline per rule, the sampled frames with the region, the fence and every object's
// box, tracking id, class and trigger flags drawn over them (inline SVG over the frame's picture),
// and the snapshot gallery by tracking id. Pure text building; any thread.
#ifndef MIRVANE_TOOLS_REPORT_HTML_PAGE_H
#define MIRVANE_TOOLS_REPORT_HTML_PAGE_H

#include <string>
#include <vector>

#include "run_report.h"

namespace mirvane {
namespace report {

std::string HtmlEscape(const std::string& text);

std::string RenderPage(const std::vector<RunReport>& runs);

}  // namespace report
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_REPORT_HTML_PAGE_H

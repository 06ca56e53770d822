// mirvane-report: a static HTML page of one or more runs of the daemon on simulated scenes.
//   mirvane-report --out DIR [--settings FILE] [--rate HZ] [--width PX] RUN...
// RUN is a path prefix P naming the files of one run, as scripts/scenarios.sh leaves them:
// P.truth.csv (the simulation's ground truth), P.events.jsonl (mirvane-sysd --json), and when
// present P.snapshots/ (mirvane-sysd --keep-snapshots), P.expect.json (expected triggers) and
// P.settings.json (the run's own daemon settings, drawn instead of --settings).
// Writes DIR/index.html with the pictures beside it (DIR/<run>/). Exit status: 0 done, 1 an input
// could not be read or the output not written, 2 bad command line.
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "evaluation.h"
#include "frame_pictures.h"
#include "html_page.h"
#include "json_input.h"
#include "run_report.h"

namespace fs = std::filesystem;

namespace {

using namespace mirvane;

constexpr const char* kUsage =
    "usage: mirvane-report --out DIR [--settings FILE] [--rate HZ] [--width PX] RUN...\n"
    "  RUN         path prefix of a run: RUN.truth.csv, RUN.events.jsonl, optional\n"
    "              RUN.snapshots/ and RUN.expect.json (scripts/scenarios.sh leaves these)\n"
    "  --out       directory of the report (index.html and its pictures)\n"
    "  --settings  the daemon's settings file, for the region and fence drawn on the frames\n"
    "              (a run's own RUN.settings.json takes its place)\n"
    "  --rate      frames shown per second of scene time (default 1; 0: every frame)\n"
    "  --width     width of the frame pictures in pixels (default 640)\n"
    "  --help      print this text\n";

struct Arguments {
  std::string out;
  std::string settings;
  double rate = 1.0;
  int width = 640;
  std::vector<std::string> runs;
};

bool ParseNumber(const char* text, double* value) {
  char* end = nullptr;
  *value = std::strtod(text, &end);
  return end != text && *end == '\0';
}

// False on a bad command line (the usage then says what is wrong).
bool ParseArguments(int argc, char** argv, Arguments* args, bool* help) {
  enum { kOut = 1, kSettings, kRate, kWidth, kHelp };
  static const option kOptions[] = {{"out", required_argument, nullptr, kOut},
                                    {"settings", required_argument, nullptr, kSettings},
                                    {"rate", required_argument, nullptr, kRate},
                                    {"width", required_argument, nullptr, kWidth},
                                    {"help", no_argument, nullptr, kHelp},
                                    {nullptr, 0, nullptr, 0}};
  opterr = 0;  // the usage alone answers a bad option
  int opt;
  double number = 0;
  while ((opt = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (opt) {
      case kOut:
        args->out = optarg;
        break;
      case kSettings:
        args->settings = optarg;
        break;
      case kRate:
        if (!ParseNumber(optarg, &number) || number < 0) return false;
        args->rate = number;
        break;
      case kWidth:
        if (!ParseNumber(optarg, &number) || number < 16 || number > 7680) return false;
        args->width = static_cast<int>(number) / 2 * 2;
        break;
      case kHelp:
        *help = true;
        return true;
      default:
        return false;
    }
  }
  args->runs.assign(argv + optind, argv + argc);
  return !args->out.empty() && !args->runs.empty();
}

// A progress bar on standard error: redrawn in place on a terminal, a line per tenth otherwise.
class Progress {
 public:
  explicit Progress(size_t total) : total_(total), terminal_(isatty(STDERR_FILENO) != 0) {}

  void Step(const std::string& what) {
    ++done_;
    const size_t tenth = total_ == 0 ? 10 : done_ * 10 / total_;
    if (!terminal_ && tenth == last_tenth_ && done_ != total_) return;
    last_tenth_ = tenth;
    constexpr size_t kWidth = 30;
    const size_t filled = total_ == 0 ? kWidth : done_ * kWidth / total_;
    std::fprintf(stderr, "%s[%s%s] %zu/%zu frames (%s)%s", terminal_ ? "\r" : "",
                 std::string(filled, '#').c_str(), std::string(kWidth - filled, '.').c_str(), done_,
                 total_, what.c_str(), terminal_ && done_ != total_ ? "" : "\n");
  }

 private:
  size_t total_;
  size_t done_ = 0;
  size_t last_tenth_ = 0;
  bool terminal_;
};

bool Fail(const std::string& what, const std::string& error) {
  std::fprintf(stderr, "mirvane-report: %s: %s\n", what.c_str(), error.c_str());
  return false;
}

// Reads a run's files, evaluates it and picks its frames; the pictures are written later.
bool LoadRun(const std::string& prefix, const Arguments& args, const report::RuleOverlay& rules,
             report::RunReport* run) {
  std::string text;
  std::string error;
  eval::GroundTruth truth;
  const std::string truth_path = prefix + ".truth.csv";
  if (!eval::ReadTextFile(truth_path, &text, &error) ||
      !eval::TruthReaderFor(text)->Read(text, &truth, &error)) {
    return Fail(truth_path, error);
  }
  if (truth.scene.empty() || truth.width <= 0 || truth.height <= 0 || !(truth.fps > 0)) {
    return Fail(truth_path, "the \"#\" line names no scene, picture size or frame rate");
  }
  eval::EventLog events;
  const std::string events_path = prefix + ".events.jsonl";
  if (!eval::ReadTextFile(events_path, &text, &error) ||
      !eval::ParseEventLines(text, &events, &error)) {
    return Fail(events_path, error);
  }
  std::unique_ptr<eval::Expectations> expectations;
  const std::string expect_path = prefix + ".expect.json";
  if (fs::exists(expect_path)) {
    expectations = std::make_unique<eval::Expectations>();
    if (!eval::ReadTextFile(expect_path, &text, &error) ||
        !eval::ParseExpectations(text, expectations.get(), &error)) {
      return Fail(expect_path, error);
    }
  }
  if (!eval::Evaluate(truth, events, expectations.get(), eval::EvaluationOptions(),
                      &run->evaluation, &error)) {
    return Fail(prefix, error);
  }
  run->name = fs::path(prefix).filename().string();
  run->scene = truth.scene;
  run->width = args.width;
  run->height = (args.width * truth.height / truth.width + 1) / 2 * 2;
  run->rules = rules;
  const std::string settings_path = prefix + ".settings.json";  // the run's own rules, if kept
  if (fs::exists(settings_path) && (!eval::ReadTextFile(settings_path, &text, &error) ||
                                    !report::ParseRuleOverlay(text, &run->rules, &error))) {
    return Fail(settings_path, error);
  }
  run->run = eval::AlignRun(truth, events, eval::RunOptions());
  run->duration = run->run.frames.empty() ? 0.0 : run->run.frames.back().time;
  run->frames = report::SampleFrames(run->run, args.rate);
  for (report::SampledFrame& frame : run->frames) {
    frame.image = run->name + "/frame-" + std::to_string(frame.scene_frame) + ".jpg";
  }
  run->timeline = report::BuildTimeline(run->run);
  return true;
}

// Copies the kept snapshots next to the page, so that the report can be moved as one folder.
bool CopySnapshots(const std::string& prefix, const std::string& out, report::RunReport* run) {
  const fs::path from = prefix + ".snapshots";
  std::error_code failure;
  if (!fs::is_directory(from, failure)) return true;
  const std::string relative = run->name + "/snapshots";
  fs::create_directories(fs::path(out) / relative, failure);
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(from, failure)) {
    if (!entry.is_regular_file()) continue;
    const std::string name = entry.path().filename().string();
    if (!fs::copy_file(entry.path(), fs::path(out) / relative / name,
                       fs::copy_options::overwrite_existing, failure)) {
      return Fail(entry.path().string(), failure.message());
    }
    names.push_back(name);
  }
  if (failure) return Fail(from.string(), failure.message());
  run->gallery = report::BuildGallery(run->run, names, relative);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  bool help = false;
  if (!ParseArguments(argc, argv, &args, &help)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  std::string text;
  std::string error;
  report::RuleOverlay rules;
  if (!args.settings.empty() && (!eval::ReadTextFile(args.settings, &text, &error) ||
                                 !report::ParseRuleOverlay(text, &rules, &error))) {
    Fail(args.settings, error);
    return 1;
  }
  std::vector<report::RunReport> runs(args.runs.size());
  size_t pictures = 0;
  for (size_t i = 0; i < runs.size(); ++i) {
    if (!LoadRun(args.runs[i], args, rules, &runs[i])) return 1;
    pictures += runs[i].frames.size();
  }
  Progress progress(pictures);
  for (size_t i = 0; i < runs.size(); ++i) {
    report::RunReport& run = runs[i];
    std::error_code failure;
    fs::create_directories(fs::path(args.out) / run.name, failure);
    if (failure) return Fail(args.out + "/" + run.name, failure.message()), 1;
    if (!CopySnapshots(args.runs[i], args.out, &run)) return 1;
    const auto pictures_of_run =
        report::FramePictures::Create(run.scene, run.width, run.height, run.run.fps, &error);
    if (pictures_of_run == nullptr) return Fail(run.scene, error), 1;
    for (const report::SampledFrame& frame : run.frames) {
      if (!pictures_of_run->Write(frame.scene_frame, args.out + "/" + frame.image, &error)) {
        return Fail(run.name, error), 1;
      }
      progress.Step(run.name);
    }
  }
  const std::string page_path = args.out + "/index.html";
  FILE* page = std::fopen(page_path.c_str(), "w");
  const std::string html = report::RenderPage(runs);
  const bool written =
      page != nullptr && std::fwrite(html.data(), 1, html.size(), page) == html.size();
  if ((page != nullptr && std::fclose(page) != 0) || !written) {
    return Fail(page_path, "cannot be written"), 1;
  }
  std::printf("report: %s\n", page_path.c_str());
  return 0;
}

// mirvane-eval: scores one run of the daemon against its scene's ground truth.
//   mirvane-eval --truth FILE --events FILE [--expect FILE] [--class NAME] [--iou X] [--json]
//   mirvane-eval --help
// Exit status: 0 done, 1 an input could not be read, 2 bad command line.
#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "evaluation.h"
#include "json_input.h"

namespace {

constexpr const char* kUsage =
    "usage: mirvane-eval --truth FILE --events FILE [--expect FILE] [--class NAME] [--iou X]"
    " [--json]\n"
    "  --truth   the scene's ground truth: JSON lines or the simulation's CSV\n"
    "  --events  the stand-in's output with --json (mirvane-sysd --json)\n"
    "  --expect  the expected rule triggers (JSON); adds rule accuracy\n"
    "  --class   score only objects of this class (person, vehicle, other, vehicle2)\n"
    "  --iou     matching threshold of CLEAR MOT and identity metrics (default 0.5)\n"
    "  --json    print JSON instead of the table\n"
    "  --help    print this text\n";

struct Arguments {
  std::string truth;
  std::string events;
  std::string expect;
  bool json = false;
  mirvane::eval::EvaluationOptions options;
};

// False on a bad command line (the usage then says what is wrong).
bool ParseArguments(int argc, char** argv, Arguments* args, bool* help) {
  enum { kTruth = 1, kEvents, kExpect, kClass, kIou, kJson, kHelp };
  static const option kOptions[] = {{"truth", required_argument, nullptr, kTruth},
                                    {"events", required_argument, nullptr, kEvents},
                                    {"expect", required_argument, nullptr, kExpect},
                                    {"class", required_argument, nullptr, kClass},
                                    {"iou", required_argument, nullptr, kIou},
                                    {"json", no_argument, nullptr, kJson},
                                    {"help", no_argument, nullptr, kHelp},
                                    {nullptr, 0, nullptr, 0}};
  opterr = 0;  // the usage alone answers a bad option
  int opt;
  while ((opt = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (opt) {
      case kTruth:
        args->truth = optarg;
        break;
      case kEvents:
        args->events = optarg;
        break;
      case kExpect:
        args->expect = optarg;
        break;
      case kClass:
        args->options.class_name = optarg;
        break;
      case kIou: {
        char* end = nullptr;
        args->options.iou_threshold = std::strtod(optarg, &end);
        if (end == optarg || *end != '\0' || !(args->options.iou_threshold > 0.0) ||
            args->options.iou_threshold > 1.0) {
          return false;
        }
        break;
      }
      case kJson:
        args->json = true;
        break;
      case kHelp:
        *help = true;
        return true;
      default:
        return false;
    }
  }
  return optind == argc && !args->truth.empty() && !args->events.empty();
}

int Fail(const std::string& what, const std::string& error) {
  std::fprintf(stderr, "mirvane-eval: %s: %s\n", what.c_str(), error.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace mirvane::eval;
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
  GroundTruth truth;
  if (!ReadTextFile(args.truth, &text, &error) ||
      !TruthReaderFor(text)->Read(text, &truth, &error)) {
    return Fail(args.truth, error);
  }
  EventLog events;
  if (!ReadTextFile(args.events, &text, &error) || !ParseEventLines(text, &events, &error)) {
    return Fail(args.events, error);
  }
  std::unique_ptr<Expectations> expectations;
  if (!args.expect.empty()) {
    expectations = std::make_unique<Expectations>();
    if (!ReadTextFile(args.expect, &text, &error) ||
        !ParseExpectations(text, expectations.get(), &error)) {
      return Fail(args.expect, error);
    }
  }
  Evaluation evaluation;
  if (!Evaluate(truth, events, expectations.get(), args.options, &evaluation, &error)) {
    return Fail(args.expect, error);
  }
  const std::string out = args.json ? FormatJson(evaluation) : FormatText(evaluation);
  std::fputs(out.c_str(), stdout);
  return 0;
}

// mirvane-model: writes, prints and checks the host model files of the network runtime.
//
//   mirvane-model write [--ideal] [--network NAME | --onnx FILE.onnx] [--settings FILE.json]
//                       [--NAME VALUE]... OUTPUT
//   mirvane-model print FILE
//   mirvane-model check FILE
//   mirvane-model --help
//
// write starts from the default model (the daemon's default path ids and the reference network's
// default imperfections), or with --ideal from none at all, then applies a JSON settings file and
// options such as --seed 7 --miss-rate 0.05 --delay-ms 0, in that order. --network motion-mog2
// writes the motion detector for real footage instead of the reference network; --onnx wraps a
// user's float ONNX export of the detection network (inputs "current" and "previous", float
// 1x3x384x384, the Y, U, V planes over 255; outputs "heatmap0".."heatmap2" 1x4xGxG,
// "regression0".."regression2" 1x32xGxG, "tracking0".."tracking2" 1x2xGxG for G 48, 24, 12), after
// running it once to check those tensors.
#include <getopt.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "common/file_write.h"
#include "model_file.h"
#include "model_settings.h"
#include "media_module.h"

namespace {

using mirvane::sim::ai::ModelCheck;
using mirvane::sim::ai::ModelDescription;

int Usage(FILE* out) {
  std::fprintf(out,
               "usage: mirvane-model write [--ideal] [--network NAME | --onnx FILE.onnx] "
               "[--settings FILE.json] [--NAME VALUE]... OUTPUT\n"
               "       mirvane-model print FILE\n"
               "       mirvane-model check FILE\n"
               "       mirvane-model --help\n"
               "settings: seed, score, score-jitter, miss-rate, false-rate, box-jitter, delay-ms\n"
               "networks: nanotrack-reference (default), motion-mog2\n");
  return out == stdout ? 0 : 2;
}

bool ReadFile(const std::string& path, std::vector<uint8_t>* bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

// The write command: argv[2] onwards.
int Write(int argc, char** argv) {
  ModelDescription model = mirvane::sim::ai::DefaultModel();
  std::string output, error;
  enum { kIdeal = 1, kNetwork, kOnnx, kSettings, kFirstSetting };
  std::vector<option> options = {{"ideal", no_argument, nullptr, kIdeal},
                                 {"network", required_argument, nullptr, kNetwork},
                                 {"onnx", required_argument, nullptr, kOnnx},
                                 {"settings", required_argument, nullptr, kSettings}};
  const std::vector<std::string> settings = mirvane::model_tool::SettingOptionNames();
  for (size_t i = 0; i < settings.size(); ++i) {
    options.push_back(
        {settings[i].c_str(), required_argument, nullptr, kFirstSetting + static_cast<int>(i)});
  }
  options.push_back({nullptr, 0, nullptr, 0});
  opterr = 0;  // unknown options are told below
  optind = 2;
  int opt;
  while ((opt = getopt_long(argc, argv, "", options.data(), nullptr)) != -1) {
    switch (opt) {
      case kIdeal:
        model.settings = mirvane::sim::ai::IdealSettings();
        break;
      case kNetwork:
        model.name = optarg;
        break;
      case kOnnx: {
        if (!ReadFile(optarg, &model.onnx) || model.onnx.empty()) {
          std::fprintf(stderr, "mirvane-model: cannot read %s\n", optarg);
          return 1;
        }
        model.name = mirvane::sim::ai::kOnnxNetworkName;
        using Check = bool (*)(const std::vector<uint8_t>*, std::string*);
        auto check = reinterpret_cast<Check>(
            mirvane::sim::MediaFunction("mirvane_media_check_onnx", &error));
        if (check == nullptr) {
          std::fprintf(stderr, "mirvane-model: %s is wrapped unchecked: %s\n", optarg,
                       error.c_str());
        } else if (!check(&model.onnx, &error)) {
          std::fprintf(stderr, "mirvane-model: %s: %s\n", optarg, error.c_str());
          return 1;
        }
        break;
      }
      case kSettings: {
        std::ifstream in(optarg);
        std::stringstream text;
        text << in.rdbuf();
        if (!in || !mirvane::model_tool::ApplySettingsJson(text.str(), &model.settings, &error)) {
          std::fprintf(stderr, "mirvane-model: %s: %s\n", optarg,
                       in ? error.c_str() : "cannot read");
          return 1;
        }
        break;
      }
      case '?':
        if (optopt == 0) {  // a long option getopt does not know
          std::fprintf(stderr, "mirvane-model: unknown option %s\n", argv[optind - 1]);
        }
        return Usage(stderr);
      default:
        if (!mirvane::model_tool::ApplySettingOption(settings[opt - kFirstSetting], optarg,
                                                     &model.settings, &error)) {
          std::fprintf(stderr, "mirvane-model: %s\n", error.c_str());
          return Usage(stderr);
        }
    }
  }
  if (optind + 1 == argc) output = argv[optind];
  if (output.empty()) return Usage(stderr);
  const std::vector<uint8_t> bytes = mirvane::sim::ai::SerializeModel(model);
  ModelDescription check_model;
  const ModelCheck check = mirvane::sim::ai::ParseModel(bytes.data(), bytes.size(), &check_model);
  if (check.code != 0) {
    std::fprintf(stderr, "mirvane-model: refusing to write: %s\n", check.reason.c_str());
    return 1;
  }
  if (!mirvane::WriteFileAtomically(output, std::string(bytes.begin(), bytes.end()))) {
    std::fprintf(stderr, "mirvane-model: cannot write %s: %s\n", output.c_str(),
                 std::strerror(errno));
    return 1;
  }
  return 0;
}

int Read(const char* path, bool print) {
  std::vector<uint8_t> bytes;
  if (!ReadFile(path, &bytes)) {
    std::fprintf(stderr, "mirvane-model: cannot read %s\n", path);
    return 1;
  }
  ModelDescription model;
  const ModelCheck check = mirvane::sim::ai::ParseModel(bytes.data(), bytes.size(), &model);
  if (check.code != 0) {
    std::fprintf(stderr, "mirvane-model: %s: refused (%d): %s\n", path, check.code,
                 check.reason.c_str());
    return 1;
  }
  if (print) {
    std::fputs(mirvane::sim::ai::DescribeModel(model).c_str(), stdout);
  } else {
    std::printf("%s: valid model of %s, %zu bytes\n", path, model.name.c_str(), bytes.size());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage(stderr);
  const std::string command = argv[1];
  if (command == "--help" && argc == 2) return Usage(stdout);
  if (command == "write") return Write(argc, argv);
  if (command == "print" && argc == 3) return Read(argv[2], true);
  if (command == "check" && argc == 3) return Read(argv[2], false);
  return Usage(stderr);
}

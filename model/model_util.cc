#include "model/model_util.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "common/log.h"

namespace mirvane {
namespace {

constexpr uint32_t kNoSize = 0xFFFFFFFFu;
constexpr size_t kMaxConfigBytes = 1 << 20;

// Base-16 conversion as std::stoul does it where unsigned long has 32 bits (the camera), on every
// host: "-1" wraps to 0xffffffff, a value past 32 bits is out of range, and both errors carry the
// text "stoul".
uint32_t ParseId(const std::string& text) {
  const size_t start = text.find_first_not_of(" \t\n\v\f\r");
  const bool negative = start != std::string::npos && text[start] == '-';
  unsigned long long magnitude = 0;
  try {
    magnitude = std::stoull(negative ? text.substr(start + 1) : text, nullptr, 16);
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument("stoul");
  } catch (const std::out_of_range&) {
    throw std::out_of_range("stoul");
  }
  // strtoul takes one sign, right before the digits: "--1", "-+1" and "- 1" are no numbers.
  if (negative &&
      (start + 1 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[start + 1])))) {
    throw std::invalid_argument("stoul");
  }
  if (magnitude > 0xFFFFFFFFull) throw std::out_of_range("stoul");
  const uint32_t value = static_cast<uint32_t>(magnitude);
  return negative ? static_cast<uint32_t>(0u - value) : value;
}

uint32_t RoundDown32(uint32_t size) {
  return size & ~31u;
}

struct FileClose {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileClose>;

// Opens path for reading when it is a regular file. Anything else counts as a file that cannot be
// opened (logged once, naming the path): a FIFO or device there would block the open or the read
// before the first frame.
File OpenRegularFile(const char* path) {
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    close(fd);
    MIRVANE_LOG(kLogErr, "%s is not a regular file\n", path);
    return nullptr;
  }
  const int flags = fcntl(fd, F_GETFL);
  if (flags >= 0) fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  File file(fdopen(fd, "rb"));
  if (!file) close(fd);
  return file;
}

}  // namespace

ModelIds GetModelIds() {
  return GetModelIds(kModelIdConfigPath);
}

ModelIds GetModelIds(const char* path) {
  const ModelIds defaults;
  MIRVANE_LOG(kLogInfo, "Load model config\n");
  const File config = OpenRegularFile(path);
  if (!config) {
    MIRVANE_LOG(kLogInfo, "Fail to open config, use default IDs\n");
    return defaults;
  }
  // A table of a dozen lines: what lies past the first MiB of a planted file is not read.
  std::stringstream file;
  char chunk[4096];
  size_t got;
  size_t total = 0;
  while (total < kMaxConfigBytes && (got = std::fread(chunk, 1, sizeof(chunk), config.get())) > 0) {
    file.write(chunk, static_cast<std::streamsize>(got));
    total += got;
  }
  return GetModelIds(file);
}

ModelIds GetModelIds(std::istream& text) {
  const ModelIds defaults;
  try {
    ModelIds ids = defaults;
    std::map<std::string, uint32_t> values;
    std::string line;
    while (std::getline(text, line)) {
      const size_t eq = line.find('=');
      if (line.empty() || eq == std::string::npos) continue;
      const std::string key = line.substr(0, eq);
      const std::string value = line.substr(eq + 1);
      if (key == "kModelPath") {
        ids.model_path = value;
      } else {
        values[key] = ParseId(value);
      }
    }
    ids.current_img = values.at("kCurrentImgPath");
    ids.pre_img = values.at("kPreImgPath");
    const char* const kHm[] = {"kHm1Path", "kHm2Path", "kHm3Path"};
    const char* const kReg[] = {"kReg1Path", "kReg2Path", "kReg3Path"};
    const char* const kTracking[] = {"kTracking1Path", "kTracking2Path", "kTracking3Path"};
    for (int i = 0; i < 3; ++i) ids.hm[i] = values.at(kHm[i]);
    for (int i = 0; i < 3; ++i) ids.reg[i] = values.at(kReg[i]);
    for (int i = 0; i < 3; ++i) ids.tracking[i] = values.at(kTracking[i]);
    return ids;
  } catch (const std::invalid_argument& e) {
    MIRVANE_LOG(kLogErr, "ERR: Read model config items fail: %s\n", e.what());
  } catch (const std::out_of_range& e) {
    MIRVANE_LOG(kLogErr, "ERR: Load model config fail: %s\n", e.what());
  }
  return defaults;
}

uint32_t GetModelSize(const std::string& path) {
  const File file = OpenRegularFile(path.c_str());
  if (!file) {
    MIRVANE_LOG(kLogErr, "get bin(%s) size fail\n", path.c_str());
    return kNoSize;
  }
  std::fseek(file.get(), 0, SEEK_END);
  const long size = std::ftell(file.get());
  return size < 0 || static_cast<unsigned long>(size) >= kNoSize ? kNoSize
                                                                 : static_cast<uint32_t>(size);
}

int LoadModel(const std::string& path, void* destination, uint32_t capacity) {
  const File opened = OpenRegularFile(path.c_str());
  std::FILE* file = opened.get();
  if (file == nullptr) {
    MIRVANE_LOG(kLogErr, "cannot read %s\n", path.c_str());
    return -24;
  }
  std::fseek(file, 0, SEEK_END);
  long size = std::ftell(file);
  std::fseek(file, 0, SEEK_SET);
  if (size < 0) {
    MIRVANE_LOG(kLogErr, "getting %s size failed\n", path.c_str());
  } else {
    // Never past the memory given: a file that grew since it was measured is read short.
    const size_t wanted =
        static_cast<size_t>(size) > capacity ? capacity : static_cast<size_t>(size);
    if (wanted < static_cast<size_t>(size) || std::fread(destination, 1, wanted, file) != wanted) {
      MIRVANE_LOG(kLogErr, "read size < %ld\n", size);
      size = -1;
    }
  }
  MIRVANE_LOG(kLogInfo, "model buf size: %ld\n", size);
  return 0;
}

NetworkRunner::NetworkRunner(uint32_t proc_id, HdModule& arena)
    : proc_id_(proc_id), ids_(GetModelIds()) {
  VENDOR_AI_NET_CFG_BUF_OPT buf_opt;
  std::memset(&buf_opt, 0, sizeof(buf_opt));
  buf_opt.method = VENDOR_AI_NET_BUF_OPT_NONE;
  buf_opt.ddr_id = DDR_ID0;
  vendor_ai_net_set(proc_id_, VENDOR_AI_NET_PARAM_CFG_BUF_OPT, &buf_opt);
  VENDOR_AI_NET_CFG_JOB_OPT job_opt;
  std::memset(&job_opt, 0, sizeof(job_opt));
  job_opt.method = VENDOR_AI_NET_JOB_OPT_LINEAR_O1;
  job_opt.wait_ms = 0;
  job_opt.schd_parm = 255;
  vendor_ai_net_set(proc_id_, VENDOR_AI_NET_PARAM_CFG_JOB_OPT, &job_opt);

  const uint32_t size = GetModelSize(ids_.model_path);
  if (size == 0) throw std::runtime_error("ERR: input model not exist: " + ids_.model_path);
  const MemMapping model = arena.FetchMemMapping(RoundDown32(size + 31));
  const int loaded =
      LoadModel(ids_.model_path, reinterpret_cast<void*>(model.virtual_address), model.size);
  if (loaded != 0) throw std::runtime_error("ERR: load model fail: " + std::to_string(loaded));

  VENDOR_AI_NET_CFG_MODEL cfg;
  std::memset(&cfg, 0, sizeof(cfg));
  cfg.pa = model.physical_address;
  cfg.va = static_cast<UINT32>(model.virtual_address);
  cfg.size = model.size;
  const int set = vendor_ai_net_set(proc_id_, VENDOR_AI_NET_PARAM_CFG_MODEL, &cfg);
  if (set != 0)
    throw std::runtime_error("ERR: vendor_ai_net_set model fail: " + std::to_string(set));
  net_ = std::make_unique<VendorAiNet>(proc_id_);
  InitVendorAiNetRunner(arena);
}

void NetworkRunner::InitVendorAiNetRunner(HdModule& arena) {
  VENDOR_AI_NET_CFG_WORKBUF workbuf;
  std::memset(&workbuf, 0, sizeof(workbuf));
  int r = vendor_ai_net_get(proc_id_, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &workbuf);
  if (r != 0) throw std::runtime_error("ERR: vendor_ai_net_get WORKBUF fail: " + std::to_string(r));
  MIRVANE_LOG(kLogInfo, "WORKBUF size: %lu\n", static_cast<unsigned long>(workbuf.size));
  const MemMapping memory =
      arena.FetchMemMapping(RoundDown32(static_cast<uint32_t>(workbuf.size) + 31));
  workbuf.pa = memory.physical_address;
  workbuf.va = static_cast<UINT32>(memory.virtual_address);
  workbuf.size = memory.size;
  r = vendor_ai_net_set(proc_id_, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &workbuf);
  if (r != 0) throw std::runtime_error("ERR: vendor_ai_net_set WORKBUF fail: " + std::to_string(r));
  run_ = std::make_unique<VendorAiNetRunner>(proc_id_);
}

}  // namespace mirvane

// The network runtime's contract: life cycle and its state errors, the work buffer, path ids,
// input records, output records, and the model checks made at open.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

extern "C" {
#include "vendor_ai.h"
}

#include "fake_device_memory.h"
#include "model_file.h"
#include "runtime_harness.h"
#include "scene_drawing.h"

namespace mirvane {
namespace sim_ai_test {
namespace {

VENDOR_AI_NET_PARAM_ID Path(UINT32 id) {
  return static_cast<VENDOR_AI_NET_PARAM_ID>(id);
}

VENDOR_AI_NET_CFG_MODEL ModelRecord(const std::vector<uint8_t>& bytes, UINT32 size) {
  return VENDOR_AI_NET_CFG_MODEL{PhysicalOf(bytes.data()), PhysicalOf(bytes.data()), size};
}

// Initialises the runtime for one test and uninitialises it at the end.
class Runtime {
 public:
  Runtime() { EXPECT_EQ(vendor_ai_init(), HD_OK); }
  ~Runtime() { EXPECT_EQ(vendor_ai_uninit(), HD_OK); }
};

// Sets the model and opens network 0; returns the open result.
HD_RESULT OpenWith(const std::vector<uint8_t>& bytes, UINT32 size) {
  VENDOR_AI_NET_CFG_MODEL cfg = ModelRecord(bytes, size);
  EXPECT_EQ(vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_MODEL, &cfg), HD_OK);
  return vendor_ai_net_open(0);
}

TEST(VendorAiRuntime, RunsTheDaemonsSequenceAndReleasesEveryMapping) {
  {
    RunningNetwork net;
    ASSERT_TRUE(net.ok());
    TestPicture picture;
    EXPECT_EQ(net.Run(picture.data(), picture.data()), HD_OK);
    EXPECT_EQ(net.Run(picture.data(), picture.data()), HD_OK);
    EXPECT_GT(LiveMappings(), 0);  // the work buffer
  }
  EXPECT_EQ(LiveMappings(), 0);
}

TEST(VendorAiRuntime, RefusesCallsOutsideItsLifeCycle) {
  UINT32 scheduler = 0;
  VENDOR_AI_NET_CFG_WORKBUF wb{};
  EXPECT_EQ(vendor_ai_net_open(0), HD_ERR_UNINIT);
  EXPECT_EQ(vendor_ai_net_get(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_ERR_UNINIT);
  EXPECT_EQ(vendor_ai_uninit(), HD_ERR_UNINIT);
  EXPECT_EQ(vendor_ai_cfg_set(VENDOR_AI_CFG_PROC_SCHD, nullptr), HD_ERR_NULL_PTR);
  EXPECT_EQ(vendor_ai_cfg_set(VENDOR_AI_CFG_PROC_SCHD, &scheduler), HD_OK);
  Runtime runtime;
  EXPECT_EQ(vendor_ai_init(), HD_ERR_INIT);
  EXPECT_EQ(vendor_ai_cfg_set(VENDOR_AI_CFG_PROC_SCHD, &scheduler), HD_ERR_STATE);
  EXPECT_EQ(vendor_ai_net_open(16), HD_ERR_PARAM);
  EXPECT_EQ(vendor_ai_net_open(0), HD_ERR_NO_CONFIG);
  EXPECT_EQ(vendor_ai_net_start(0), HD_ERR_NOT_OPEN);
  EXPECT_EQ(vendor_ai_net_stop(0), HD_ERR_NOT_OPEN);
  EXPECT_EQ(vendor_ai_net_proc(0), HD_ERR_NOT_OPEN);
  EXPECT_EQ(vendor_ai_net_close(0), HD_ERR_NOT_OPEN);
  EXPECT_EQ(vendor_ai_net_get(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_ERR_NOT_OPEN);

  const std::vector<uint8_t> model = sim::ai::SerializeModel(IdealModel());
  ASSERT_EQ(OpenWith(model, static_cast<UINT32>(model.size())), HD_OK);
  EXPECT_EQ(vendor_ai_net_open(0), HD_ERR_ALREADY_OPEN);
  VENDOR_AI_NET_CFG_JOB_OPT job{VENDOR_AI_NET_JOB_OPT_LINEAR_O1, 0, 255};
  EXPECT_EQ(vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_JOB_OPT, &job), HD_ERR_STATE);
  EXPECT_EQ(vendor_ai_net_start(0), HD_ERR_NO_CONFIG);  // no work buffer yet
  EXPECT_EQ(vendor_ai_net_proc(0), HD_ERR_NOT_START);
  EXPECT_EQ(vendor_ai_net_stop(0), HD_ERR_NOT_START);
  VENDOR_AI_BUF out{};
  EXPECT_EQ(vendor_ai_net_get(0, Path(0xa0000084), &out), HD_ERR_NOT_START);

  ASSERT_EQ(vendor_ai_net_get(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_OK);
  std::vector<uint8_t> work(wb.size);
  wb.pa = wb.va = PhysicalOf(work.data());
  ASSERT_EQ(vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_OK);
  ASSERT_EQ(vendor_ai_net_start(0), HD_OK);
  EXPECT_EQ(vendor_ai_net_start(0), HD_ERR_ALREADY_START);
  EXPECT_EQ(vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_ERR_STATE);
  EXPECT_EQ(vendor_ai_net_proc(0), HD_ERR_NO_CONFIG);  // no inputs yet
  EXPECT_EQ(vendor_ai_net_close(0), HD_ERR_STATE);
  EXPECT_EQ(vendor_ai_uninit(), HD_ERR_STATE);
  EXPECT_EQ(vendor_ai_net_stop(0), HD_OK);
  EXPECT_EQ(vendor_ai_net_start(0), HD_OK);  // the work buffer stays until close
  EXPECT_EQ(vendor_ai_net_stop(0), HD_OK);
  EXPECT_EQ(vendor_ai_net_close(0), HD_OK);
  EXPECT_EQ(LiveMappings(), 0);
}

TEST(VendorAiRuntime, AsksForAWorkBufferThatHoldsEveryOutputAndKeepsThemInside) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  VENDOR_AI_NET_CFG_WORKBUF wb{};
  ASSERT_EQ(vendor_ai_net_get(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_OK);
  const UINT32 base = PhysicalOf(net.work_buffer().data());
  EXPECT_EQ(wb.pa, base);
  // 4x(48x48+24x24+12x12) unsigned bytes, 32x that in signed bytes, 2x that in 16-bit words,
  // each output on a 64-byte boundary.
  EXPECT_GE(wb.size, 4u * 3024 + 32u * 3024 + 2u * 2 * 3024);
  EXPECT_LE(wb.size, 4u * 3024 + 32u * 3024 + 2u * 2 * 3024 + 9 * 64);

  const struct {
    UINT32 id, width, channels, fmt;
  } outputs[] = {{0xa0000084, 48, 4, 0xa2080000},  {0xa0000096, 24, 4, 0xa2080000},
                 {0xa00000a7, 12, 4, 0xa2080000},  {0xa000007e, 48, 32, 0xa1080004},
                 {0xa0000094, 24, 32, 0xa1080004}, {0xa00000a5, 12, 32, 0xa1080004},
                 {0xa0000081, 48, 2, 0xa1100006},  {0xa0000095, 24, 2, 0xa1100006},
                 {0xa00000a6, 12, 2, 0xa1100006}};
  std::vector<std::pair<UINT32, UINT32>> spans;
  for (const auto& o : outputs) {
    SCOPED_TRACE(o.id);
    VENDOR_AI_BUF buf{};
    ASSERT_EQ(vendor_ai_net_get(0, Path(o.id), &buf), HD_OK);
    EXPECT_EQ(buf.sign, VENDOR_AI_BUF_SIGN);
    EXPECT_EQ(buf.width, o.width);
    EXPECT_EQ(buf.height, o.width);
    EXPECT_EQ(buf.channel, o.channels);
    EXPECT_EQ(static_cast<UINT32>(buf.fmt), o.fmt);
    EXPECT_EQ(buf.size, o.width * o.width * o.channels * (o.fmt == 0xa1100006 ? 2 : 1));
    EXPECT_FLOAT_EQ(buf.scale_ratio, o.fmt == 0xa2080000 ? 1.0f / 255 : 1.0f);
    EXPECT_EQ(buf.va, buf.pa);  // the fake maps at the physical address; va follows the record
    EXPECT_EQ((buf.pa - base) % 64, 0u);
    EXPECT_GE(buf.pa, base);
    EXPECT_LE(buf.pa + buf.size, base + wb.size);
    spans.push_back({buf.pa, buf.pa + buf.size});
  }
  std::sort(spans.begin(), spans.end());
  for (size_t i = 1; i < spans.size(); ++i) EXPECT_LE(spans[i - 1].second, spans[i].first);
}

TEST(VendorAiRuntime, RefusesASmallWorkBufferAndRefusedMappings) {
  Runtime runtime;
  const std::vector<uint8_t> model = sim::ai::SerializeModel(IdealModel());
  ASSERT_EQ(OpenWith(model, static_cast<UINT32>(model.size())), HD_OK);
  VENDOR_AI_NET_CFG_WORKBUF wb{};
  ASSERT_EQ(vendor_ai_net_get(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_OK);
  std::vector<uint8_t> work(wb.size);
  VENDOR_AI_NET_CFG_WORKBUF small{PhysicalOf(work.data()), 0, wb.size - 1};
  EXPECT_EQ(vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &small), HD_ERR_NOBUF);
  VENDOR_AI_NET_CFG_WORKBUF nowhere{0, 0, wb.size};
  EXPECT_EQ(vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &nowhere), HD_ERR_PARAM);
  RefuseMappings(true);
  wb.pa = PhysicalOf(work.data());
  EXPECT_EQ(vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb), HD_ERR_SYS);
  RefuseMappings(false);
  EXPECT_EQ(vendor_ai_net_close(0), HD_OK);
}

TEST(VendorAiRuntime, AnswersUnknownPathsAndParametersWithTheirCodes) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture picture;
  VENDOR_AI_BUF in = InputRecord(picture.data());
  VENDOR_AI_BUF out{};
  EXPECT_EQ(vendor_ai_net_set(0, Path(0x90000002), &in), HD_ERR_PATH);
  EXPECT_EQ(vendor_ai_net_set(0, Path(0xa0000084), &in), HD_ERR_PATH);  // outputs are read only
  EXPECT_EQ(vendor_ai_net_get(0, Path(0xa0000085), &out), HD_ERR_PATH);
  EXPECT_EQ(vendor_ai_net_get(0, Path(0x90000000), &out), HD_ERR_PATH);
  EXPECT_EQ(vendor_ai_net_get(0, VENDOR_AI_NET_PARAM_IN_PATH_LIST, &out), HD_ERR_NOT_SUPPORT);
  EXPECT_EQ(vendor_ai_net_get(0, Path(7), &out), HD_ERR_PARAM);
  EXPECT_EQ(vendor_ai_net_set(0, Path(0x90000000), nullptr), HD_ERR_NULL_PTR);
}

TEST(VendorAiRuntime, ChecksEachInputRecord) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture picture;
  const VENDOR_AI_BUF good = InputRecord(picture.data());
  VENDOR_AI_BUF in = good;
  in.sign = 0;
  EXPECT_EQ(vendor_ai_net_set(0, Path(0x90000000), &in), HD_ERR_SIGN);
  in = good;
  in.fmt = HD_VIDEO_PXLFMT_Y8;
  EXPECT_EQ(vendor_ai_net_set(0, Path(0x90000000), &in), HD_ERR_NOT_SUPPORT);
  in = good;
  in.width = 320;
  EXPECT_EQ(vendor_ai_net_set(0, Path(0x90000000), &in), HD_ERR_PARAM);
  in = good;
  in.size = 384 * 384;
  EXPECT_EQ(vendor_ai_net_set(0, Path(0x90000001), &in), HD_ERR_NOBUF);
  in = good;
  in.line_ofs = 0;  // means the width
  EXPECT_EQ(vendor_ai_net_set(0, Path(0x90000001), &in), HD_OK);
}

std::vector<uint8_t> ValidModel() {
  return sim::ai::SerializeModel(IdealModel());
}

TEST(VendorAiRuntime, RefusesBadModelFilesAtOpen) {
  Runtime runtime;
  std::vector<uint8_t> model = ValidModel();
  const UINT32 size = static_cast<UINT32>(model.size());
  EXPECT_EQ(OpenWith(model, size - 1), HD_ERR_UNDERRUN);  // the region ends before the file
  std::vector<uint8_t> foreign = model;
  foreign[0] = 'P';
  EXPECT_EQ(OpenWith(foreign, size), HD_ERR_SIGN);
  std::vector<uint8_t> corrupt = model;
  corrupt[40] ^= 1;
  EXPECT_EQ(OpenWith(corrupt, size), HD_ERR_BAD_DATA);
  std::vector<uint8_t> newer = model;
  newer[4] = 2;
  EXPECT_EQ(OpenWith(newer, size), HD_ERR_NOT_SUPPORT);
  RefuseMappings(true);
  EXPECT_EQ(OpenWith(model, size), HD_ERR_SYS);
  RefuseMappings(false);
  EXPECT_EQ(LiveMappings(), 0);
  // A region rounded up beyond the file (as the daemon maps it) is fine.
  model.resize(model.size() + 31, 0xa5);
  EXPECT_EQ(OpenWith(model, static_cast<UINT32>(model.size())), HD_OK);
  EXPECT_EQ(vendor_ai_net_close(0), HD_OK);
}

TEST(VendorAiRuntime, RunsNetworksOfSeveralProcessIdsApart) {
  RunningNetwork first(IdealModel(), 0);
  RunningNetwork second(IdealModel(), 3);
  ASSERT_TRUE(first.ok());
  ASSERT_TRUE(second.ok());
  TestPicture empty, busy;
  busy.Draw({2, 100, 100, 200, 160});
  ASSERT_EQ(first.Run(busy.data(), busy.data()), HD_OK);
  ASSERT_EQ(second.Run(empty.data(), empty.data()), HD_OK);
  EXPECT_EQ(first.Decode(0.5f)[1].size(), 1u);
  EXPECT_EQ(second.Decode(0.5f)[1].size(), 0u);
}

}  // namespace
}  // namespace sim_ai_test
}  // namespace mirvane

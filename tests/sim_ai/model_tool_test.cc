// The model tool's settings: JSON files and command-line options over a starting set.
#include <gtest/gtest.h>

#include "model_settings.h"

namespace mirvane {
namespace model_tool {
namespace {

TEST(ModelToolSettings, JsonSetsTheNamedFieldsAndKeepsTheOthers) {
  sim::ai::NetworkSettings s = sim::ai::IdealSettings();
  std::string error;
  ASSERT_TRUE(ApplySettingsJson(R"({"seed": 42, "miss_rate": 0.25, "delay_ms": 15})", &s, &error))
      << error;
  EXPECT_EQ(s.seed, 42u);
  EXPECT_FLOAT_EQ(s.miss_rate, 0.25f);
  EXPECT_EQ(s.delay_ms, 15u);
  EXPECT_EQ(s.box_jitter, 0.0f);
  EXPECT_FLOAT_EQ(s.score, 0.85f);
}

TEST(ModelToolSettings, JsonRefusesUnknownNamesWrongTypesAndNonObjects) {
  sim::ai::NetworkSettings s;
  std::string error;
  EXPECT_FALSE(ApplySettingsJson(R"({"missrate": 0.1})", &s, &error));
  EXPECT_NE(error.find("missrate"), std::string::npos);
  EXPECT_FALSE(ApplySettingsJson(R"({"delay_ms": 1.5})", &s, &error));
  EXPECT_FALSE(ApplySettingsJson(R"({"seed": -1})", &s, &error));
  EXPECT_FALSE(ApplySettingsJson(R"({"score": "high"})", &s, &error));
  EXPECT_FALSE(ApplySettingsJson("[1]", &s, &error));
  EXPECT_FALSE(ApplySettingsJson("{", &s, &error));
}

TEST(ModelToolSettings, OptionsTakeDashedNamesAndCheckTheirValues) {
  sim::ai::NetworkSettings s;
  std::string error;
  EXPECT_TRUE(ApplySettingOption("box-jitter", "1.5", &s, &error));
  EXPECT_FLOAT_EQ(s.box_jitter, 1.5f);
  EXPECT_TRUE(ApplySettingOption("seed", "0x10", &s, &error));
  EXPECT_EQ(s.seed, 16u);
  EXPECT_FALSE(ApplySettingOption("delay-ms", "-3", &s, &error));
  EXPECT_FALSE(ApplySettingOption("score", "0.5x", &s, &error));
  EXPECT_FALSE(ApplySettingOption("speed", "1", &s, &error));
}

}  // namespace
}  // namespace model_tool
}  // namespace mirvane

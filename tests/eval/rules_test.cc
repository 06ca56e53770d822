// Rule accuracy: which reported triggers count, who they belong to, and how expectations take
// them. Report flags in the fixtures: /1 region, /4 fence direction 1, /2 fence direction 2.
#include "rules.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "sequence_builder.h"

namespace mirvane {
namespace eval {
namespace {

Expectations Parsed(const std::string& text) {
  Expectations e;
  std::string error;
  EXPECT_TRUE(ParseExpectations(text, &e, &error)) << error;
  return e;
}

std::string Seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%+.1f", value);
  return std::isnan(value) ? "-" : text;
}

// Empty for a rule without expectations or triggers.
std::string Describe(const char* rule, const RuleTally& t) {
  if (t.expected + t.found + t.missed + t.false_triggers == 0 && std::isnan(t.mean_delay))
    return "";
  return std::string(rule) + " " + std::to_string(t.found) + "/" + std::to_string(t.expected) +
         " missed " + std::to_string(t.missed) + " false " + std::to_string(t.false_triggers) +
         " delay " + Seconds(t.mean_delay) + " max " + Seconds(t.max_delay) + "; ";
}

// The tallies, then each expectation's delay or "missed", then the false triggers.
std::string Describe(const RuleAccuracy& a) {
  std::string text = Describe("region", a.region) + Describe("fence", a.fence);
  for (const ExpectationOutcome& o : a.outcomes) {
    text += (text.empty() || text.back() == ' ' ? "" : " ") +
            (o.found ? "#" + std::to_string(o.trigger.tracking_id) + " " + Seconds(o.delay_seconds)
                     : std::string("missed"));
  }
  for (const FalseTrigger& f : a.false_triggers) {
    text += "; false #" + std::to_string(f.trigger.tracking_id) + ": " + f.reason;
  }
  return text;
}

TEST(EvaluateRules, TakesTriggersOfTheObjectRuleAndDirectionWithinTheWindow) {
  // Region flagged from 0.2 s while expected from 2.0 s (early by more than the default 1 s); a
  // fence crossing 2.5 s after it was expected (late by more than the default 2 s).
  const std::vector<std::string> out_of_window = {
      "2* 1@0 2@1 | 10@0 20@1", "33* 1@0 2@1 | 10@0/1 20@1", "1@0 2@1 | 10@0/1 20@1/4",
      "4* 1@0 2@1 | 10@0/1 20@1"};
  const struct {
    const char* name;
    std::vector<std::string> frames;
    const char* expectations;
    const char* accuracy;
  } cases[] = {
      // A scene file holds its expectations under "expected_triggers"; region triggers may come
      // any time late.
      {"region with its delay",
       {"42* 1@0 | 10@0", "8* 1@0 | 10@0/1"},
       R"({"name":"default","expected_triggers":{"region":{"expect":[{"object":1,"time":1}]}}})",
       "region 1/1 missed 0 false 0 delay +3.2 max +3.2; #10 +3.2"},
      {"expected by frame",
       {"6* 1@0 | 10@0", "4* 1@0 | 10@0/1"},
       R"({"region":{"expect":[{"object":1,"frame":5}]}})",
       "region 1/1 missed 0 false 0 delay +0.1 max +0.1; #10 +0.1"},
      // The flag triggers when it turns on; a frame without the track does not turn it off.
      {"flag on again",
       {"1@0 | 10@0/1", "1@0 |", "1@0 | 10@0/1", "1@0 | 10@0", "1@0 | 10@0/1"},
       R"({"region":{"expect":[{"object":1,"time":0}]}})",
       "region 1/1 missed 0 false 1 delay +0.0 max +0.0; #10 +0.0; false #10: repeated"},
      // Flag 6 is both crossings; in a frame without truth they belong to the track's usual
      // object. A track matched with another object in the flagged frame triggers for that one.
      {"crossing owners",
       {"2* 1@0 2@1 | 10@0 20@1", "1@0 2@1 | 20@0/4", "| 10@0/6"},
       R"({"fence":{"expect":[{"object":1,"direction":1,"time":0.2}]}})",
       "fence 1/1 missed 0 false 2 delay +0.0 max +0.0; #20 +0.0; false #10: repeated; false #10: "
       "object 1 has no such expectation"},
      // An identity switch at frame 10 makes the new track trigger the region again.
      {"a new track on the same object repeats",
       {"5* 1@0 | 10@0", "1@0 | 10@0/1", "4* 1@0 | 10@0", "2* 1@0 | 11@0", "3* 1@0 | 11@0/1"},
       R"({"region":{"expect":[{"object":1,"time":0.5}]}})",
       "region 1/1 missed 0 false 1 delay +0.0 max +0.0; #10 +0.0; false #11: repeated"},
      {"outside the window", out_of_window,
       R"({"region":{"expect":[{"object":1,"time":2}]},
           "fence":{"expect":[{"object":2,"direction":1,"time":1}]}})",
       "region 0/1 missed 1 false 1 delay - max -; fence 0/1 missed 1 false 1 delay - max -; "
       "missed missed; false #10: outside the expected window; false #20: outside the expected "
       "window"},
      // Outcomes by expected time: the fence first.
      {"inside wider windows", out_of_window,
       R"({"region":{"early_seconds":2,"expect":[{"object":1,"time":2}]},
           "fence":{"late_seconds":3,"expect":[{"object":2,"direction":1,"time":1}]}})",
       "region 1/1 missed 0 false 0 delay -1.8 max -1.8; fence 1/1 missed 0 false 0 delay +2.5 max "
       "+2.5; #20 +2.5 #10 -1.8"},
      // Object 1 crosses the other way; track 30 crosses where no object is.
      {"fence directions",
       {"3* 1@0 2@1 | 10@0 20@1", "1@0 2@1 | 10@0/2 20@1", "1@0 2@1 | 10@0 20@1/4",
        "5* 1@0 2@1 | 10@0 20@1", "| 30@7/4"},
       R"({"fence":{"expect":[{"object":1,"direction":1,"time":0.3},
                              {"object":2,"direction":1,"time":0.3}]}})",
       "fence 1/2 missed 1 false 2 delay +0.1 max +0.1; missed #20 +0.1; false #10: object 1 has "
       "no such expectation; false #30: no true object there"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const AlignedRun run = RunOf(c.frames);
    RuleAccuracy a;
    std::string error;
    ASSERT_TRUE(
        EvaluateRules(run, MatchFrames(ToSequence(run), 0.5), Parsed(c.expectations), &a, &error))
        << error;
    EXPECT_EQ(Describe(a), c.accuracy);
  }
}

TEST(EvaluateRules, RefusesAFrameThatTheRunCannotPlaceInTime) {
  const AlignedRun run = RunOf({"10* 1@0 | 10@0"});  // no frame rate either
  RuleAccuracy a;
  std::string error;
  EXPECT_FALSE(EvaluateRules(run, {}, Parsed(R"({"region":{"expect":[{"object":1,"frame":50}]}})"),
                             &a, &error));
  EXPECT_EQ(error,
            "the region expectation for object 1 names frame 50, which the ground truth "
            "does not list");
}

}  // namespace
}  // namespace eval
}  // namespace mirvane

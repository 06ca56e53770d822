// mirvane-ns's command line: what it refuses before it enters any namespace, and its help.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::Subprocess;

testing::ChildResult RunNs(std::vector<std::string> args) {
  args.insert(args.begin(), MIRVANE_NS_PATH);
  Subprocess ns(args);
  EXPECT_TRUE(ns.Wait(std::chrono::seconds(30)));
  return ns.result();
}

TEST(HostNsCommandLine, RefusesWithTheUsageAMissingCommandOrAMalformedOption) {
  const std::vector<std::vector<std::string>> refused = {
      {},
      {"true"},                             // the command must follow "--"
      {"--"},                               // and there must be one
      {"--keep", "--", "true"},             // "--" is not a path to keep
      {"--keep=", "--", "true"},            // nor is nothing
      {"--etc", "a/b=/tmp", "--", "true"},  // an /etc entry is one name
      {"--etc", "noequals", "--", "true"},
      {"--overlay", "relative=/tmp", "--", "true"},
      {"--empty", "relative", "--", "true"},
      {"--bogus", "--", "true"},
  };
  for (const std::vector<std::string>& args : refused) {
    std::string shown;
    for (const std::string& a : args) shown += " " + a;
    SCOPED_TRACE("mirvane-ns" + shown);
    const testing::ChildResult result = RunNs(args);
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_NE(result.err.find("usage:"), std::string::npos) << result.err;
  }
}

TEST(HostNsCommandLine, HelpGoesToStandardOutputAndSucceeds) {
  const testing::ChildResult result = RunNs({"--help"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find("usage:"), std::string::npos) << result.out;
  EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace mirvane

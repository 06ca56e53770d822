// GoogleTest checks run in a child process, for tests of state that lives per process tree
// (the host simulation's device memory and taken blocks, the platform's bring-up).
#ifndef MIRVANE_TESTS_TESTING_CHECKS_IN_CHILD_H
#define MIRVANE_TESTS_TESTING_CHECKS_IN_CHILD_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include "testing/child_process.h"

namespace mirvane {
namespace testing {

// Runs body in a child, whose failed checks print their messages to result.out and make it exit
// with 1; so does an exception leaving body (which must never unwind into the child's copy of
// the test runner).
inline ChildResult RunChecksInChild(const std::function<void()>& body) {
  return RunInChild([&body] {
    try {
      body();
    } catch (const std::exception& e) {
      ADD_FAILURE() << "exception in the child: " << e.what();
    } catch (...) {
      ADD_FAILURE() << "exception in the child";
    }
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  });
}

// The log lines at the error level ("[Mirvane][Err] ...") in a captured standard output.
inline int CountErrorLogLines(const std::string& out) {
  int count = 0;
  for (size_t at = out.find("[Mirvane][Err]"); at != std::string::npos;
       at = out.find("[Mirvane][Err]", at + 1)) {
    count += at == 0 || out[at - 1] == '\n';
  }
  return count;
}

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_CHECKS_IN_CHILD_H

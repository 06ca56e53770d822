// The private namespace of a test program (see tools/hostns): the source and build trees stay
// visible, everything else under /tmp is the program's own.
#ifndef MIRVANE_TESTS_TESTING_TEST_NAMESPACE_H
#define MIRVANE_TESTS_TESTING_TEST_NAMESPACE_H

#include "private_namespace.h"

namespace mirvane {
namespace testing {

// Enters the namespace of options, with the source and build trees kept; on failure prints why
// and returns false. Call from main while single-threaded.
bool EnterTestNamespace(hostns::NamespaceOptions options);

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_TEST_NAMESPACE_H

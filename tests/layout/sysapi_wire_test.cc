// The system API's bytes on the socket: the header's words go out little-endian and unpadded,
// followed by the body, whatever the CPU. The bytes are also left as an artifact, which the
// native and the armhf run must produce identically.
#include <gtest/gtest.h>

#include <string>

#include "one_shot_server.h"
#include "sysapi.h"
#include "testing/artifacts.h"

namespace {

using mirvane::testing::OneShotServer;
using mirvane::testing::SaveArtifact;

TEST(SysapiWire, EventIsAHeaderOfLittleEndianWordsThenThePayload) {
  OneShotServer server(SYSAPI_SYSTEM_SOCKET, "");
  std::string payload(SYSAPI_EVENT_PAYLOAD_SIZE, '\0');
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7 + 0x80);

  ASSERT_EQ(sysapi_eventcb(SYSAPI_SYSTEM_SOCKET, payload.data()), 520);
  const std::string sent = server.received();

  ASSERT_EQ(sent.size(), 12u + 520u);
  EXPECT_EQ(sent.substr(0, 12), std::string("\xff\xff\xff\xff\x31\0\0\0\x08\x02\0\0", 12));
  EXPECT_EQ(sent.substr(12), payload);
  EXPECT_TRUE(SaveArtifact("sysapi/event.bin", sent));
}

}  // namespace

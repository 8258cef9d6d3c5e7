// Whatever is written to flash is stored before its device is closed, also where a driver keeps data back.
#include <mutex>

#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"

namespace {

class FlashSyncTest : public FlashTest {
 protected:
  // The server's writes and syncs of flash, in order. Each sync fails with `error`, unless that is 0.
  Lines CallsOf(uint32_t code, const Bytes& request, int error) {
    std::mutex mutex;
    Lines calls;
    const pid_t server = Phone().ServerProcess();
    const CallTracer tracer(server, [&](const TracedCall& call) -> CallFate {
      const bool transfers = call.thread == server && (call.IsWrite() || call.IsSync());
      if (!transfers || call.DescriptorPath().find("/dev/mtd") == std::string::npos) return {};
      const std::lock_guard lock(mutex);
      calls.push_back(call.IsWrite() ? "write" : "sync");
      if (call.IsSync() && error != 0) return {CallFate::Kind::Refused, 0, error};
      return {};
    });
    EXPECT_EQ(AskStatus(code, request), SUCCESS);
    const std::lock_guard lock(mutex);
    return calls;
  }
};

TEST_F(FlashSyncTest, StoresEveryRecordBeforeItIsClosed) {
  const Bytes address = {1, 2, 3, 4, 5, 6};
  const Bytes other = {6, 5, 4, 3, 2, 1};
  const Lines one = {"write", "sync"};
  for (const int error : {0, EINVAL}) {
    DiscardPhone();
    options.instant_sleeps = true;
    Boot();
    EXPECT_EQ(CallsOf(0x04, Words({77}), error), one + one) << "partition information, twice";
    EXPECT_EQ(CallsOf(0x0C, FromText("123456789012345"), error), one) << "identity";
    EXPECT_EQ(CallsOf(0x0E, address + other + other, error), one) << "Bluetooth information";
    EXPECT_EQ(CallsOf(0x32, Bytes(128, 0x41), error), one) << "factory information";
  }
}

}  // namespace

// The caller's library and the service over real RPC, in one process.
#include <gtest/gtest.h>

#include <thread>

#include "client/update_client.h"
#include "support/recording_log.h"
#include "update/helper.h"
#include "update/rpc_answer.h"
#include "update/update_service.h"

namespace zarn {
namespace {

using Lines = std::vector<std::string>;

// One test for the service's whole life: a process opens the endpoint once.
TEST(Rpc, ServesCallsUntilItIsStopped) {
  const testing::TemporaryFolder folder;
  testing::RecordingLog log;
  UpdateService& service = UpdateService::instance();
  ASSERT_EQ(service.initialize(), 0U);
  std::thread thread([&] { EXPECT_EQ(service.run(), 0U); });
  const client::UpdateClient caller;
  const std::wstring missing = L"C:\\f\u00fcr\U0001F600\nmissing.exe";
  auto installed = caller.install(missing);
  for (int tries = 0; tries < 500 && !installed.ok(); ++tries, installed = caller.install(missing)) Sleep(10);
  auto began = log.texts();
  began.resize(4);
  EXPECT_EQ(began,
            (Lines{"UpdateService::initialize: Zarn Update Service", "Running Zarn Update Service",
                   "Attempting to delete stale update file.", "Listening for remote procedure calls..."}));

  EXPECT_EQ(installed.value().status, client::kFailed);
  EXPECT_TRUE(log.contains("bundlePath: C:\\f\xc3\xbcr\xf0\x9f\x98\x80\\x0amissing.exe"));
  EXPECT_EQ(caller.install(std::wstring(kMaximumPathUnits + 1, L'x')).value().status, client::kFailed);
  EXPECT_EQ(caller.checkBundle(std::wstring(200'000, L'x')).value(), client::kSignatureRefused);
  EXPECT_TRUE(log.contains("Install: the path is missing or too long."));
  EXPECT_EQ(caller.install(std::wstring(L"a\0b", 3)).error().failure, client::CallFailure::InvalidPath);

  EXPECT_EQ(service.stop(), 0U);
  thread.join();
  log.clear();
  const auto again = static_cast<std::int32_t>(service.stop());
  EXPECT_NE(again, 0);
  EXPECT_EQ(log.texts(),
            (Lines{"Stopping Zarn Update Service",
                   formatPrintf("UpdateService::stop: RpcMgmtStopServerListening failed  %d,  %s", again,
                                systemErrorPhrase(static_cast<std::uint32_t>(again)))}));
}

}  // namespace
}  // namespace zarn

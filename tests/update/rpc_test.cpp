// The caller's library and the service over real RPC, in one process.
#include <gtest/gtest.h>

#include <thread>

#include "client/update_client.h"
#include "support/recording_log.h"
#include "update/helper.h"
#include "update/interface/update_interface.h"
#include "update/rpc_answer.h"
#include "update/update_service.h"
#include "util/windows_handles.h"

namespace zarn {
namespace {

using client::CallFailure;
using client::UpdateClient;

static_assert(client::kInstalledRebootRequired == static_cast<std::int32_t>(Status::RebootRequired) &&
              client::kRebootInitiated == static_cast<std::int32_t>(Status::RebootInitiated) &&
              client::kFailed == static_cast<std::int32_t>(Status::Failed) &&
              client::kExitCodeUnknown == static_cast<std::int32_t>(Status::ExitCodeUnknown) &&
              client::kSignatureRefused == static_cast<std::int32_t>(Status::SignatureRefused) &&
              client::kSignerRefused == static_cast<std::int32_t>(Status::SignerRefused));

TEST(Client, AnswersThatNobodyIsThere) {
  const UpdateClient nobody(L"zarn-nobody");
  EXPECT_EQ(nobody.checkBundle(L"C:\\x.exe").error().failure, CallFailure::NotRunning);
  EXPECT_EQ(nobody.install(L"C:\\x.exe").error().failure, CallFailure::NotRunning);
  EXPECT_EQ(nobody.setAppDataPath(L"C:\\x").error().rpcStatus,
            static_cast<std::uint32_t>(RPC_S_SERVER_UNAVAILABLE));
  EXPECT_EQ(nobody.install(std::wstring(L"a\0b", 3)).error().failure, CallFailure::InvalidPath);
}

TEST(Client, SurvivesAServiceThatDiesInACall) {
  const testing::ScopedVariable order("ZARN_HELPER", "serve zarn-dying");
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  ASSERT_TRUE(CreateProcessW(testing::wide(ZARN_TEST_HELPER).c_str(), nullptr, nullptr, nullptr, FALSE, 0,
                             nullptr, nullptr, &startup, &started));
  const KernelHandle process(started.hProcess);
  const KernelHandle thread(started.hThread);
  const UpdateClient dying(L"zarn-dying");
  auto result = dying.install(L"C:\\x.exe");
  for (int tries = 0; tries < 500 && !result.ok() && result.error().failure == CallFailure::NotRunning;
       ++tries) {
    Sleep(20);  // until it listens
    result = dying.install(L"C:\\x.exe");
  }
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error().failure, CallFailure::Interrupted);
  EXPECT_EQ(dying.install(L"C:\\x.exe").error().failure, CallFailure::NotRunning);
}

class ServiceTest : public ::testing::Test {
 protected:
  testing::RecordingLog log_;
  testing::TemporaryFolder folder_;
};

// One test for the service's whole life: a process opens the endpoint once.
TEST_F(ServiceTest, ServesCallsUntilItIsStopped) {
  const std::string stale = folder_.temp / "ZarnMediaServerUpdate.exe";
  testing::writeFile(stale, "stale");
  UpdateService& service = UpdateService::instance();
  ASSERT_EQ(service.initialize(), 0U);
  std::thread thread([&] { EXPECT_EQ(service.run(), 0U); });
  const std::vector<std::string> began = {
      "UpdateService::initialize: Zarn Update Service", "Running Zarn Update Service",
      "Attempting to delete stale update file.", "Listening for remote procedure calls..."};
  const UpdateClient caller;
  auto checked = caller.checkBundle(L"C:\\missing.exe");
  for (int tries = 0; tries < 100 && !checked.ok(); ++tries, checked = caller.checkBundle(L"C:\\missing.exe"))
    Sleep(10);
  EXPECT_EQ(checked.value(), client::kSignatureRefused);
  EXPECT_FALSE(FileUtils::exists(stale));
  auto lines = log_.texts();
  lines.resize(began.size());
  EXPECT_EQ(lines, began);

  const auto installed = caller.install(L"C:\\f\u00fcr\U0001F600\nmissing.exe");
  EXPECT_EQ(installed.value().status, client::kFailed);
  EXPECT_TRUE(log_.contains("bundlePath: C:\\f\xc3\xbcr\xf0\x9f\x98\x80\\x0amissing.exe"));
  EXPECT_EQ(caller.install(std::wstring(kMaximumPathUnits + 1, L'x')).value().status, client::kFailed);
  EXPECT_EQ(caller.checkBundle(std::wstring(200'000, L'x')).value(), client::kSignatureRefused);
  EXPECT_TRUE(log_.contains("Install: the path is missing or too long."));

  EXPECT_EQ(service.stop(), 0U);
  thread.join();
  log_.clear();
  const std::uint32_t again = service.stop();
  EXPECT_NE(again, 0U);
  EXPECT_EQ(log_.texts(), (std::vector<std::string>{
                              "Stopping Zarn Update Service",
                              formatPrintf("UpdateService::stop: RpcMgmtStopServerListening failed  %d,  %s",
                                           static_cast<std::int32_t>(again), systemErrorPhrase(again))}));
}

}  // namespace
}  // namespace zarn

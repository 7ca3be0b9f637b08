// What a local user may try against the running service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "e2e/caller.h"
#include "e2e/service_under_test.h"
#include "support/temp_directory.h"
#include "update/interface/update_interface.h"
#include "util/file_utils.h"

namespace zarn::testing {
namespace {

namespace wire = update_interface;

using HostileCallers = OnStage;

TEST_F(HostileCallers, HardLinkAtTheStagingNameIsNotWrittenThrough) {
  const TempDirectory dir;
  writeFile(dir / "victim", "precious");
  const std::string staged = ServiceUnderTest::stagedCopy();
  boost::filesystem::remove(FileUtils::toPath(staged));
  boost::filesystem::create_hard_link(FileUtils::toPath(dir / "victim"), FileUtils::toPath(staged));

  EXPECT_EQ(install(bundle("approved.exe")).status, 30001);
  EXPECT_EQ(readFile(dir / "victim"), "precious");
}

TEST_F(HostileCallers, SwappingTheStagedCopyNeverRunsTheIntruder) {
  const std::string intruder = readFile(bundle("intruder.exe"));
  const TempDirectory dir;
  const auto staged = FileUtils::toPath(ServiceUnderTest::stagedCopy());
  std::atomic<bool> done{false};
  std::atomic<int> rounds{0};
  // Renames something onto it, writes over it, deletes it, as fast as it can.
  std::thread swapper([&] {
    for (; !done; ++rounds) {
      writeFile(dir / "own.exe", intruder);
      MoveFileExW(FileUtils::toPath(dir / "own.exe").c_str(), staged.c_str(), MOVEFILE_REPLACE_EXISTING);
      const FileHandle file(CreateFileW(staged.c_str(), GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, 0, nullptr));
      DWORD written = 0;
      if (file)
        WriteFile(file.get(), intruder.data(), static_cast<DWORD>(intruder.size()), &written, nullptr);
      if (rounds % 3 == 0) DeleteFileW(staged.c_str());
    }
  });
  int judged = 0;
  for (int installs = 0; installs < 100 && (rounds < 3000 || installs < 15); ++installs) {
    // Most fail at the copy; the others show what is tried here.
    if (install(bundle("approved.exe")).status != 30002) ++judged;
  }
  done = true;
  swapper.join();
  for (const auto& run : ServiceUnderTest::installerRuns()) EXPECT_EQ(run.who, "genuine");
  EXPECT_GE(rounds, 2000);
  EXPECT_GT(judged, 0);
  DeleteFileW(staged.c_str());
  EXPECT_EQ(install(bundle("approved.exe")).status, 30001);
}

TEST_F(HostileCallers, ForgedLineBreaksStayInsideTheirLine) {
  const std::string forged = "C:\\x\r\nNov 15, 2026 22:42:15.123 [0001] INFO - forged.exe";
  // Every message that names the path must escape it, those of failing file operations too.
  EXPECT_TRUE(setAppDataPath(forged));
  EXPECT_TRUE(setAppDataPath(""));
  EXPECT_EQ(check(forged).status, 30004);
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine(R"(C:\x\x0d\x0aNov 15, 2026)"));
  for (int file = 0; file < 3; ++file) {
    EXPECT_EQ(ServiceUnderTest::log(file).find("\nNov 15, 2026 22:42:15.123"), std::string::npos);
  }
}

/// A connection that sends what no client library would.
class RawCaller {
 public:
  RawCaller() {
    RPC_WSTR text = nullptr;
    RpcStringBindingComposeW(nullptr, wire::rpcText(wire::kProtocolSequence), nullptr,
                             wire::rpcText(wire::kEndpoint), nullptr, &text);
    if (RpcBindingFromStringBindingW(text, &binding_) != RPC_S_OK) throw std::runtime_error("no binding");
    RpcStringFreeW(&text);
  }
  RawCaller(const RawCaller&) = delete;
  RawCaller& operator=(const RawCaller&) = delete;
  ~RawCaller() { RpcBindingFree(&binding_); }

  /// Sends `request` to a procedure; the runtime's status.
  RPC_STATUS call(unsigned procedure, const std::string& request) {
    RPC_MESSAGE message = {};
    message.Handle = binding_;
    message.DataRepresentation = 0x10;
    message.BufferLength = static_cast<unsigned>(request.size());
    message.ProcNum = procedure;
    message.RpcInterfaceInformation = wire::kClientStub.RpcInterfaceInformation;
    const RPC_STATUS ready = I_RpcGetBuffer(&message);
    if (ready != RPC_S_OK) return ready;
    std::memcpy(message.Buffer, request.data(), request.size());
    message.BufferLength = static_cast<unsigned>(request.size());
    const RPC_STATUS status = I_RpcSendReceive(&message);
    if (status == RPC_S_OK) I_RpcFreeBuffer(&message);
    return status;
  }

 private:
  RPC_BINDING_HANDLE binding_ = nullptr;
};

std::string wireString(const std::u16string& text) {
  const std::uint32_t count = static_cast<std::uint32_t>(text.size()) + 1;
  const std::uint32_t header[] = {count, 0, count};
  return std::string(reinterpret_cast<const char*>(header), sizeof(header))
      .append(reinterpret_cast<const char*>(text.c_str()), count * sizeof(char16_t));
}

TEST_F(HostileCallers, MalformedRequestsAreRefusedAndLeakNothing) {
  RawCaller caller;
  const std::string sound = wireString(u"C:\\no such folder\\missing.exe");
  ASSERT_EQ(caller.call(1, sound), RPC_S_OK) << "the unmutated request is understood";
  EXPECT_NE(caller.call(2, ""), RPC_S_OK) << "a null string";

  const KernelHandle process = service_.process();
  const auto handles = [&] {
    DWORD count = 0;
    GetProcessHandleCount(process.get(), &count);
    return count;
  };
  const DWORD before = handles();
  const auto seed = std::random_device{}();
  std::mt19937 random(seed);
  const auto below = [&](std::size_t limit) { return random() % static_cast<std::uint32_t>(limit); };
  int refused = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string request = sound;
    for (auto flips = below(6); flips > 0; --flips) {
      // The counts in front matter most.
      const std::size_t at = below(2) == 0 ? below(12) : below(request.size());
      request[at] = static_cast<char>(below(256));
    }
    if (below(4) == 0) request.resize(below(request.size() + 1));
    // Procedure 0 would move the logs; unknown numbers are welcome.
    const unsigned procedure = below(10) == 0 ? 3U + below(5) : 1U + below(2);
    refused += caller.call(procedure, request) == RPC_S_OK ? 0 : 1;
    ASSERT_TRUE(i % 500 != 0 || service_.isRunning()) << "seed " << seed << ", round " << i;
  }
  EXPECT_GT(refused, 1000);
  EXPECT_LE(handles(), before + 50);
  EXPECT_EQ(install(bundle("approved.exe")).status, 30001);
}

}  // namespace
}  // namespace zarn::testing

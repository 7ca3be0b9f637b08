// What a local user may try against the running service.
#include "e2e/service_under_test.h"

#include "os/process.h"
#include "support/run_program.h"
#include "tools/stage/endurance/handle_count.h"
#include "update/interface/update_interface.h"

namespace zarn::testing {
namespace {

namespace wire = update_interface;

using HostileCallers = OnStage;

TEST_F(HostileCallers, SwappingTheStagedCopyNeverRunsTheIntruder) {
  const std::string intruder = readFile(bundle("intruder.exe"));
  const TempDirectory dir;
  const auto staged = toPath(ServiceUnderTest::stagedCopy());
  std::atomic<bool> done{false};
  std::atomic<int> rounds{0};
  // Renames something onto it, writes over it, deletes it, as fast as it can.
  std::thread swapper([&] {
    for (; !done; ++rounds) {
      writeFile(dir / "own.exe", intruder);
      MoveFileExW(toPath(dir / "own.exe").c_str(), staged.c_str(), MOVEFILE_REPLACE_EXISTING);
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
    if (installApproved().status != 30002) ++judged;
  }
  done = true;
  swapper.join();
  for (const auto& run : ServiceUnderTest::installerRuns()) EXPECT_EQ(run.who, "genuine");
  EXPECT_GE(rounds, 2000);
  EXPECT_GT(judged, 0);
  DeleteFileW(staged.c_str());
  EXPECT_EQ(installApproved().status, 30001);
}

TEST_F(HostileCallers, AppDataPathsThatAreNoLocalFoldersAreNotUsedNorIsAFolderAtTheCopysName) {
  const std::string staged = ServiceUnderTest::stagedCopy();
  const auto plant = [&] {
    EXPECT_TRUE(FileUtils::createDirectories(staged + R"(\deep\deeper)"));
    writeFile(staged + R"(\deep\file)", "in the way");
  };
  const std::string temp = staged.substr(0, staged.rfind('\\'));
  const std::string roundAbout = temp + R"(\..\)" + temp.substr(temp.rfind('\\') + 1);
  for (const std::string& path :
       std::vector<std::string>{staged, roundAbout, R"(c:/program files/zarn update service/x)",
                                R"(\\.\pipe\zarn)", R"(\\host\pipe\x)", "//host/share/x",
                                "C:", "C:\\x\r\nNov 15, 2026 22:42:15.123 [0001] INFO - forged.exe"}) {
    SCOPED_TRACE(path);
    const std::size_t before = ServiceUnderTest::log().size();
    ASSERT_TRUE(setAppDataPath(path));
    EXPECT_EQ(storedAppDataPath(), path);
    // The log rotates where it is.
    EXPECT_TRUE(waitUntil([&] { return ServiceUnderTest::log().size() < before; })) << "the log has moved";
    EXPECT_TRUE(ServiceUnderTest::waitForLogLine("is not used"));
    EXPECT_EQ(check(path), 30004);
    EXPECT_EQ(ServiceUnderTest::log().find("\nNov 15, 2026 22:42:15.123"), std::string::npos);
    EXPECT_EQ(installApproved().status, 30001);
  }
  plant();
  EXPECT_EQ(installApproved().status, 30001) << "whatever stands at the copy's name";
  ASSERT_TRUE(setAppDataPath(staged));
  plant();
  EXPECT_EQ(service_.stop(), 0U);
  EXPECT_NE(ServiceUnderTest::log().find("Service stopped with exitcode 0"), std::string::npos);
  service_.start();
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("is not used"));
  EXPECT_FALSE(FileUtils::exists(staged));
  EXPECT_EQ(installApproved().status, 30001) << "and after a restart";
  EXPECT_TRUE(setAppDataPath(""));
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("Zarn Update Service v"));
}

TEST_F(HostileCallers, AStopEndsAllThatWaitAndNotTheInstallerThatRuns) {
  constexpr int calls = 20;
  ServiceUnderTest::planInstaller("exit=1641\nsleep_ms=3000\n");
  const KernelHandle process = service_.process();
  const auto refusals = [] {
    return countOf(R"("reason":"The request was refused: )",
                   readFile(R"(C:\ProgramData\Zarn Update Service\Refused Requests.jsonl)"));
  };
  const std::size_t refusalsBefore = refusals();
  std::vector<std::future<Answer>> answers(calls);
  for (auto& answer : answers) answer = std::async(std::launch::async, installApproved);
  ASSERT_TRUE(waitUntil([] { return !ServiceUnderTest::installerRuns().empty(); }));
  // One runs, sixteen wait, the others have no place.
  const auto isAnswered = [](const auto& answer) { return answer.wait_for(0s) == std::future_status::ready; };
  EXPECT_TRUE(waitUntil([&] { return std::ranges::count_if(answers, isAnswered) == calls - 17; }));
  EXPECT_EQ(check(bundle("approved.exe")), 0) << "checks wait for no installer";
  EXPECT_FALSE(ServiceUnderTest::installerRuns().at(0).hasEnded);
  const auto asked = GetTickCount64();
  service_.requestStop();
  EXPECT_LT(GetTickCount64() - asked, 1000U) << "the control manager is answered at once";
  EXPECT_EQ(ServiceUnderTest::waitForExit(process), 0U);
  EXPECT_LT(GetTickCount64() - asked, 15'000U);
  std::multiset<std::optional<long>> statuses;
  for (auto& answer : answers) statuses.insert(answer.get().status);
  EXPECT_TRUE(statuses.count(30001) == 1 && statuses.count(30002) == calls - 1);
  const auto runs = ServiceUnderTest::installerRuns();
  EXPECT_TRUE(runs.size() == 1 && runs[0].hasEnded) << "the installer was cut";
  EXPECT_EQ(refusals() - refusalsBefore, calls - 1U);
}

/// Sends `request`, which no client library would, to a procedure; the runtime's status.
RPC_STATUS callRaw(unsigned procedure, const std::string& request) {
  static const RPC_BINDING_HANDLE binding = [] {
    RPC_WSTR text = nullptr;
    RPC_BINDING_HANDLE made = nullptr;
    RpcStringBindingComposeW(nullptr, wire::rpcText(wire::kProtocolSequence), nullptr,
                             wire::rpcText(wire::kEndpoint), nullptr, &text);
    EXPECT_EQ(RpcBindingFromStringBindingW(text, &made), RPC_S_OK);
    RpcStringFreeW(&text);
    return made;
  }();
  RPC_MESSAGE message = {};
  message.Handle = binding;
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

std::string wireString(const std::u16string& text) {
  const std::uint32_t count = static_cast<std::uint32_t>(text.size()) + 1;
  const std::uint32_t header[] = {count, 0, count};
  return std::string(reinterpret_cast<const char*>(header), sizeof(header))
      .append(reinterpret_cast<const char*>(text.c_str()), count * sizeof(char16_t));
}

/// What a process of its own sends, since Wine's client keeps a connection for every refused call as long as
/// it lives, and with it the server.
TEST_F(HostileCallers, DISABLED_SendsMalformedRequests) {
  const std::string sound = wireString(u"C:\\no such folder\\missing.exe");
  ASSERT_EQ(callRaw(1, sound), RPC_S_OK) << "the unmutated request is understood";
  EXPECT_NE(callRaw(2, ""), RPC_S_OK) << "a null string";
  int refused = 0;
  // Procedure 0 would move the logs; unknown numbers are welcome.
  for (const unsigned procedure : {1U, 2U, 3U, 7U}) {
    for (std::size_t at = 0; at < sound.size(); ++at) {
      refused += callRaw(procedure, sound.substr(0, at)) == RPC_S_OK ? 0 : 1;
      for (const char byte : {'\0', '\1', '\x7f', '\x80', '\xff'})
        refused += callRaw(procedure, std::string(sound).replace(at, 1, 1, byte)) == RPC_S_OK ? 0 : 1;
    }
    ASSERT_TRUE(service_.isRunning()) << procedure;
  }
  EXPECT_GT(refused, 1000);
}

TEST_F(HostileCallers, MalformedRequestsAreRefusedAndLeakNothing) {
  const KernelHandle process = service_.process();
  const auto handles = [&] { return endurance::handleCount(GetProcessId(process.get())); };
  const std::size_t before = handles();
  ASSERT_GT(before, 0U);
  const ProgramRun run = runProgram(os::executablePath().value(), {"--gtest_also_run_disabled_tests",
                                                                   "--gtest_filter=*SendsMalformedRequests"});
  EXPECT_EQ(run.exitCode, 0U) << run.output;
  EXPECT_TRUE(waitUntil([&] { return handles() <= before + 20; }))
      << before << " handles became " << handles();
  EXPECT_EQ(installApproved().status, 30001);
}

}  // namespace
}  // namespace zarn::testing

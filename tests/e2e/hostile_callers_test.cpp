// What a local user may try against the running service.
#include "e2e/service_under_test.h"

#include <psapi.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <random>

#include "trust/program_image.h"
#include "update/interface/update_interface.h"

namespace zarn::testing {
namespace {

namespace wire = update_interface;

using HostileCallers = OnStage;

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

TEST_F(HostileCallers, ForgedLineBreaksStayInsideTheirLine) {
  const std::string forged = "C:\\x\r\nNov 15, 2026 22:42:15.123 [0001] INFO - forged.exe";
  // Every message that names the path must escape it, those of failing file operations too.
  EXPECT_TRUE(setAppDataPath(forged));
  EXPECT_TRUE(setAppDataPath(""));
  EXPECT_EQ(check(forged), 30004);
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine(R"(C:\x\x0d\x0aNov 15, 2026)"));
  for (int file = 0; file < 3; ++file)
    EXPECT_EQ(ServiceUnderTest::log(file).find("\nNov 15, 2026 22:42:15.123"), std::string::npos);
}

DWORD handlesOf(const KernelHandle& process) {
  DWORD count = 0;
  GetProcessHandleCount(process.get(), &count);
  return count;
}

TEST_F(HostileCallers, AppDataPathsThatAreNoLocalFoldersAreStoredAndNotUsed) {
  const std::string staged = ServiceUnderTest::stagedCopy();
  boost::filesystem::remove_all(FileUtils::toPath(staged));
  const std::string temp = staged.substr(0, staged.rfind('\\'));
  const std::string roundAbout = temp + R"(\..\)" + temp.substr(temp.rfind('\\') + 1);
  for (const std::string& path :
       std::vector<std::string>{staged, temp, roundAbout, R"(C:\Program Files\Zarn Update Service)",
                                R"(c:/program files/zarn update service/x)", R"(\\.\pipe\zarn)",
                                R"(\??\C:\x)", R"(\\?\unc\host\pipe\x)", R"(\\host\pipe\x)", "//host/share/x",
                                "nul", R"(C:\x\con\y)", "C:", R"(relative\path)"}) {
    SCOPED_TRACE(path);
    const std::size_t before = ServiceUnderTest::log().size();
    ASSERT_TRUE(setAppDataPath(path));
    EXPECT_EQ(storedAppDataPath(), path);
    // The log rotates where it is.
    EXPECT_TRUE(waitUntil([&] { return ServiceUnderTest::log().size() < before; })) << "the log has moved";
    EXPECT_TRUE(ServiceUnderTest::waitForLogLine("is not used"));
    EXPECT_EQ(installApproved().status, 30001);
  }
  ASSERT_TRUE(setAppDataPath(staged));
  EXPECT_EQ(service_.stop(), 0U);
  service_.start();
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("is not used"));
  EXPECT_FALSE(FileUtils::exists(staged));
  EXPECT_EQ(installApproved().status, 30001) << "and after a restart";
  EXPECT_TRUE(setAppDataPath(""));
  EXPECT_TRUE(ServiceUnderTest::waitForLogLine("Zarn Update Service v"));
}

TEST_F(HostileCallers, ALinkAtTheStagingNameIsNotWrittenThroughAndAFolderThereIsRemoved) {
  const TempDirectory dir;
  const auto staged = FileUtils::toPath(ServiceUnderTest::stagedCopy());
  writeFile(dir / "victim", "precious");
  boost::filesystem::remove(staged);
  boost::filesystem::create_hard_link(FileUtils::toPath(dir / "victim"), staged);
  EXPECT_EQ(installApproved().status, 30001);
  EXPECT_EQ(readFile(dir / "victim"), "precious");
  const auto plant = [&] {
    boost::filesystem::create_directories(staged / "deep" / "deeper");
    writeFile(FileUtils::toUtf8(staged / "deep" / "file"), "in the way");
  };
  plant();
  EXPECT_EQ(installApproved().status, 30001);
  plant();
  EXPECT_EQ(service_.stop(), 0U);
  EXPECT_NE(ServiceUnderTest::log().find("Service stopped with exitcode 0"), std::string::npos);
  service_.start();
  EXPECT_FALSE(boost::filesystem::exists(staged));
}

/// Peak of the memory that the service had to itself, in bytes.
std::size_t peakMemory(const KernelHandle& process) {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof(counters);
  GetProcessMemoryInfo(process.get(), &counters, sizeof(counters));
  return counters.PeakWorkingSetSize;
}

TEST_F(HostileCallers, ClaimedSizesOfCertificatesCostNoMemory) {
  const TempDirectory dir;
  const KernelHandle process = service_.process();
  const std::size_t before = peakMemory(process);
  for (const std::uint64_t claim : {0x11000000ULL, 0x48000000ULL, 0xFFFFFF00ULL}) {
    const std::string path = dir / (std::to_string(claim) + ".exe");
    ProgramImage image(true);
    put(image.bytes, image.table(), claim, 4);
    image.claim(image.table(), claim);
    writeFile(path, image.bytes);
    boost::filesystem::resize_file(FileUtils::toPath(path), image.table() + claim);
    std::vector<std::jthread> callers;
    for (int i = 0; i < 3; ++i) callers.emplace_back([&] { EXPECT_EQ(check(path), 30004); });
  }
  EXPECT_LT(peakMemory(process) - before, 64U << 20U);
  EXPECT_EQ(check(bundle("approved.exe")), 0);
}

/// A really signed program whose certificate table begins with an entry of another type.
std::string withForeignEntry(std::string program, bool beforeTheGoodOne) {
  const auto number = [&](std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, program.data() + offset, sizeof(value));
    return value;
  };
  const std::size_t directory = number(0x3C) + 24 + 112 + 4 * 8;
  const std::uint32_t table = number(directory);
  if (beforeTheGoodOne) {
    program.insert(table, std::string(16, '\0'));
    put(program, table, 16, 4);
    put(program, table + 4, 0x0200, 2);
    put(program, directory + 4, number(directory + 4) + 16, 4);
  }
  put(program, table + 6, 1, 2);
  return program;
}

TEST_F(HostileCallers, CertificateEntriesOfOtherKindsReachNoParser) {
  const TempDirectory dir;
  const std::string approved = readFile(bundle("approved.exe"));
  const std::map<std::string, std::string> programs = {
      {"alone.exe", withForeignEntry(approved, false)},
      {"before.exe", withForeignEntry(approved, true)},
      {"alone32.exe", ProgramImage(false, {{.length = 72, .type = 1}}).bytes},
      {"before32.exe", ProgramImage(false, {{.length = 72, .type = 1}, {}}).bytes},
      {"short32.exe", ProgramImage(false, {{.length = 7}}).bytes},
      {"nothing64.exe", ProgramImage(true, {{.length = 0}}).bytes}};
  const KernelHandle process = service_.process();
  const DWORD before = handlesOf(process);
  for (int round = 0; round < 5; ++round) {
    for (const auto& [name, program] : programs) {
      writeFile(dir / name, program);
      EXPECT_EQ(check(dir / name), 30004) << name;
      EXPECT_EQ(install(dir / name).status, 30004) << name;
    }
  }
  EXPECT_LE(handlesOf(process), before + 20);
  EXPECT_EQ(installApproved().status, 30001);
  EXPECT_EQ(service_.stop(), 0U);
  EXPECT_EQ(ServiceUnderTest::waitForExit(process), 0U);
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
  std::mutex mutex;
  std::map<long, int> answers;
  std::vector<std::jthread> callers;
  for (int i = 0; i < calls; ++i) {
    callers.emplace_back([&] {
      const long status = installApproved().status.value_or(-1);
      const std::lock_guard lock(mutex);
      ++answers[status];
    });
  }
  ASSERT_TRUE(waitUntil([] { return !ServiceUnderTest::installerRuns().empty(); }));
  // One runs, sixteen wait, the others have no place.
  EXPECT_TRUE(waitUntil([&] {
    const std::lock_guard lock(mutex);
    return answers[30002] == calls - 17;
  }));
  const auto asked = GetTickCount64();
  service_.requestStop();
  EXPECT_LT(GetTickCount64() - asked, 1000U) << "the control manager is answered at once";
  callers.clear();
  EXPECT_EQ(ServiceUnderTest::waitForExit(process), 0U);
  EXPECT_LT(GetTickCount64() - asked, 15'000U);
  EXPECT_EQ(answers, (std::map<long, int>{{30001, 1}, {30002, calls - 1}}));
  const auto runs = ServiceUnderTest::installerRuns();
  ASSERT_EQ(runs.size(), 1U);
  EXPECT_NE(runs[0].endedMs, 0U) << "the installer was cut";
  EXPECT_EQ(refusals() - refusalsBefore, calls - 1U);
}

/// A connection that sends what no client library would.
struct RawCaller {
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
  const DWORD before = handlesOf(process);
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
  EXPECT_LE(handlesOf(process), before + 50);
  EXPECT_EQ(installApproved().status, 30001);
}

}  // namespace
}  // namespace zarn::testing

// ZarnUpdateClient.dll as a program loads it: what it answers to bad input, and calls that take
// too long. Nobody serves the endpoint but who is started here.
#include "client/bounded_work.h"
#include "client/update_client.h"
#include "support/run_program.h"
#include "support/test.h"
#include "util/product_names.h"

namespace zarn::testing {
namespace {

struct Library {
  template <typename Function>
  Function* find(const char* name) const {
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
  }

  Library() = default;
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() { FreeLibrary(module); }

  HMODULE module = LoadLibraryW(StringUtils::utf8to16(ZARN_LIBRARY).c_str());
  decltype(&zarn_update_install) install = find<decltype(zarn_update_install)>("zarn_update_install");
  decltype(&zarn_update_set_app_data) setAppData =
      find<decltype(zarn_update_set_app_data)>("zarn_update_set_app_data");
  decltype(&zarn_update_probe) probe = find<decltype(zarn_update_probe)>("zarn_update_probe");
  decltype(&zarn_update_describe_result) describe =
      find<decltype(zarn_update_describe_result)>("zarn_update_describe_result");
  decltype(&zarn_update_get_service) getService =
      find<decltype(zarn_update_get_service)>("zarn_update_get_service");
};

/// Two pages, behind which nothing may be touched; the end of the first one can be closed, too.
struct Pages {
  template <typename T>
  T* atEnd(std::size_t count) const {
    return reinterpret_cast<T*>(memory + 4096 - count * sizeof(T));
  }

  char* const memory =
      static_cast<char*>(VirtualAlloc(nullptr, 8192, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  DWORD before = 0;
  const bool isClosed = VirtualProtect(memory + 4096, 4096, PAGE_NOACCESS, &before) != 0;
};

template <typename T>
T* nowhere(std::uintptr_t address) {
  return reinterpret_cast<T*>(address);
}

/// Where nobody may write.
const zarn_update_answer kReadOnly{sizeof(kReadOnly), 0, 0, 0, 0};
constexpr wchar_t kGood[] = LR"(C:\b.exe)";

TEST(CInterface, AnswersBadPathsWithACode) {
  const Library library;
  const Pages pages;
  const std::wstring longest = L"C:\\" + std::wstring(32'764, L'x'), tooLong = longest + L"x";
  auto* const unterminated = pages.atEnd<wchar_t>(4);
  std::memcpy(unterminated, L"C:\\x", 8);
  const Pages others;
  auto* const odd = others.atEnd<char>(4095);
  std::memset(odd, 'x', 4095);
  // What comes of an install and of a folder that is set.
  const std::tuple<int, int, std::vector<const wchar_t*>> rows[] = {
      {1, 1, {nullptr, nowhere<wchar_t>(1), nowhere<wchar_t>(0xfff0000000000000), unterminated}},
      {1, 1, {reinterpret_cast<wchar_t*>(odd)}},
      {2, 5, {L""}},
      {3, 3, {L"b.exe", L"C:b.exe", LR"(\b.exe)", LR"(1:\b.exe)", L"C:"}},
      {4, 4, {tooLong.c_str()}},
      {5, 5, {L"C:/b.exe", LR"(\/s\b.exe)", longest.c_str()}}};
  for (const auto& [installing, setting, paths] : rows)
    for (const wchar_t* path : paths) {
      zarn_update_answer answer{sizeof(answer), 0, 0, 0, 0};
      EXPECT_EQ(library.install(path, nullptr, &answer), installing) << &path - paths.data();
      EXPECT_EQ(answer.status, ZARN_UPDATE_STATUS_FAILED) << "no success for who looks at nothing else";
      EXPECT_EQ(library.setAppData(path, nullptr, nullptr), setting) << &path - paths.data();
    }
  unterminated[3] = 0;
  EXPECT_EQ(library.setAppData(unterminated, nullptr, nullptr), ZARN_UPDATE_NOT_RUNNING)
      << "nothing is read behind it";
}

TEST(CInterface, AnswersBadRecordsWithACode) {
  const Library library;
  const Pages pages;
  zarn_update_answer answer{sizeof(answer), 0, 0, 0, 0};
  const KernelHandle event(CreateEventW(nullptr, 1, 0, nullptr));
  HKEY key = nullptr;
  RegOpenKeyW(HKEY_LOCAL_MACHINE, L"Software", &key);
  // What comes of it; the options' size and flags, and what stands behind them; then of handles.
  for (const auto& [expected, size, flags, later] : {std::tuple{5, 24U, 0U, 9U},
                                                     {5, 28U, 0U, 0U},
                                                     {5, 24U, 1U, 0U},
                                                     {1, 0U, 0U, 0U},
                                                     {1, 23U, 0U, 0U},
                                                     {1, 28U, 0U, 9U},
                                                     {1, 0xffffffffU, 0U, 0U},
                                                     {1, 24U, 2U, 0U}}) {
    const struct {
      zarn_update_options known;
      std::uint32_t later[2];
    } options{{size, flags, 0, 0, nullptr}, {later, 0}};
    EXPECT_EQ(library.install(kGood, &options.known, &answer), expected) << size << " " << flags;
  }
  for (void* const handle :
       {event.get(), static_cast<void*>(key), nowhere<void>(0x12344), INVALID_HANDLE_VALUE}) {
    const zarn_update_options options{sizeof(options), 0, 0, 0, handle};
    EXPECT_EQ(library.install(kGood, &options, &answer), handle == event.get() ? 5 : 1) << handle;
  }
  RegCloseKey(key);
  auto* const cut = pages.atEnd<std::uint32_t>(1);
  for (const std::uint32_t size : {24U, 65536U}) {
    *cut = size;  // and nothing behind it
    EXPECT_EQ(library.install(kGood, reinterpret_cast<zarn_update_options*>(cut), &answer), 1);
    EXPECT_EQ(library.install(kGood, nullptr, reinterpret_cast<zarn_update_answer*>(cut)), 1);
    EXPECT_EQ(library.getService(reinterpret_cast<zarn_update_service*>(cut)), 1);
  }
  EXPECT_EQ(library.install(kGood, nowhere<zarn_update_options>(1), &answer), 1);
  auto* const large =
      static_cast<std::uint32_t*>(VirtualAlloc(nullptr, 1 << 17, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  for (const auto& [size, expected] : {std::pair{65536U, 5}, {65540U, 1}}) {
    *large = size;
    EXPECT_EQ(library.install(kGood, reinterpret_cast<zarn_update_options*>(large), &answer), expected);
  }
  for (auto* const to : {static_cast<zarn_update_answer*>(nullptr), nowhere<zarn_update_answer>(1),
                         const_cast<zarn_update_answer*>(&kReadOnly)})
    EXPECT_EQ(library.install(kGood, nullptr, to), 1);
  for (const std::uint32_t size : {0U, 19U}) {
    answer.size = size;
    EXPECT_EQ(library.install(kGood, nullptr, &answer), 1);
  }
  zarn_update_service service{sizeof(service), 9, 9, 9};
  EXPECT_EQ(library.getService(&service), 0);
  EXPECT_EQ(std::tuple(service.size, service.state, service.process_id, service.error),
            std::tuple(16U, ZARN_UPDATE_SERVICE_NOT_INSTALLED, 0U, 0U));

  wchar_t text[8] = L"1234567";
  EXPECT_EQ(library.describe(99, text, 4), 0);
  EXPECT_EQ(std::wstring(text, 8), std::wstring(L"an \0"
                                                L"567\0",
                                                8));
  EXPECT_EQ(library.describe(1, text, 0) + library.describe(1, nullptr, 8) +
                library.describe(1, nowhere<wchar_t>(2), 8),
            3);
}

TEST(CInterface, DoesTheWorkOfAThreadForWhomThatThreadActs) {
  struct Look final : client::Work {
    void run() noexcept override {
      KernelHandle token;
      acts = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, 1, token.receive()) != 0;
    }
    bool acts = false;
  };
  for (const bool acts : {false, true}) {
    const auto look = std::make_shared<Look>();
    ASSERT_TRUE(!acts || ImpersonateSelf(SecurityImpersonation) != 0);
    EXPECT_EQ(client::runBounded(look, INFINITE, {}), client::WaitEnd::Done);
    RevertToSelf();
    EXPECT_EQ(look->acts, acts);
  }
}

/// Answers installs with a status when it may; ends with the test.
struct SlowService {
  explicit SlowService(int status) {
    setEnvironment("ZARN_HELPER", "answer " + std::to_string(status));
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    std::wstring program = StringUtils::utf8to16(ZARN_DYING_SERVICE);
    CreateProcessW(program.c_str(), nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr, &startup, &started);
    process.reset(started.hProcess);
    CloseHandle(started.hThread);
  }
  ~SlowService() {
    TerminateProcess(process.get(), 0);
    WaitForSingleObject(process.get(), INFINITE);
  }
  const KernelHandle mayAnswer{CreateEventW(nullptr, 1, 1, L"zarn-answer")};
  KernelHandle process;
};

TEST(CInterface, SeesARestartWhereNobodyTellsTheServicesProcess) {
  const Library library;
  std::optional<SlowService> service(std::in_place, 30000);
  while (library.probe(nullptr, nullptr) == ZARN_UPDATE_NOT_RUNNING) Sleep(10);
  for (const std::uint32_t expected : {ZARN_UPDATE_RESTART_NOT_BACK, ZARN_UPDATE_RESTART_BACK}) {
    const bool restarts = expected == ZARN_UPDATE_RESTART_BACK;
    const auto restarter = std::async(std::launch::async, [&] {
      if (!restarts) return;
      Sleep(300);
      service.reset();
      Sleep(500);
      service.emplace(30000);
    });
    zarn_update_answer answer{sizeof(answer), 0, 0, 0, 0};
    const zarn_update_options options{sizeof(options), ZARN_UPDATE_WAIT_FOR_RESTART, 0,
                                      restarts ? 20'000U : 700U, nullptr};
    const auto begin = GetTickCount64();
    EXPECT_EQ(library.install(kGood, &options, &answer), 0);
    EXPECT_EQ(std::pair(answer.status, answer.restart), std::pair(30000, expected));
    EXPECT_GE(GetTickCount64() - begin, 600U);
  }
}

TEST(CInterface, EndsAWaitAndNotTheCallAndOutlivesItsLibrary) {
  const SlowService service(30001);
  std::optional<Library> loaded(std::in_place);
  const Library& library = *loaded;
  while (library.probe(nullptr, nullptr) == ZARN_UPDATE_NOT_RUNNING) Sleep(10);
  EXPECT_EQ(library.probe(nullptr, nullptr), ZARN_UPDATE_OK);
  const KernelHandle event(CreateEventW(nullptr, 1, 0, nullptr));
  zarn_update_answer answer{sizeof(answer), 0, 0, 0, 0};
  const auto install = [&](std::uint32_t limit, void* cancel) {
    const zarn_update_options options{sizeof(options), ZARN_UPDATE_WAIT_FOR_RESTART, limit, 0, cancel};
    return library.install(kGood, &options, &answer);
  };
  for (void* const cancel : {static_cast<void*>(nullptr), event.get()}) {
    EXPECT_EQ(install(cancel == nullptr ? 0 : 30'000, cancel), ZARN_UPDATE_OK);
    EXPECT_EQ(std::tuple(answer.status, answer.installer_exit_code, answer.restart),
              std::tuple(30001, 7, 0U));
  }
  ResetEvent(service.mayAnswer.get());
  client::CallOptions over;
  over.timeLimit = -1ms;
  EXPECT_EQ(client::UpdateClient().install(kGood, over).error().failure, client::CallFailure::TimedOut);
  EXPECT_EQ(install(100, nullptr), ZARN_UPDATE_TIMED_OUT);
  EXPECT_EQ(answer.status, ZARN_UPDATE_STATUS_FAILED);
  const auto setter = std::async(std::launch::async, [&] { Sleep(100), SetEvent(event.get()); });
  for (int sent = 0; sent < 70; ++sent)  // but for the first one nothing is
    EXPECT_EQ(install(0, event.get()), ZARN_UPDATE_CANCELLED);
  for (int begun = 2; begun < 64; ++begun) EXPECT_EQ(install(1, nullptr), ZARN_UPDATE_TIMED_OUT);
  EXPECT_EQ(install(1, nullptr), ZARN_UPDATE_TOO_MANY_CALLS);

  // The threads that were left behind hold the code that they run.
  loaded.reset();
  EXPECT_NE(GetModuleHandleW(L"ZarnUpdateClient.dll"), nullptr);
  SetEvent(service.mayAnswer.get());
  for (int tries = 0; tries < 500 && GetModuleHandleW(L"ZarnUpdateClient.dll") != nullptr; ++tries) Sleep(10);
  EXPECT_EQ(GetModuleHandleW(L"ZarnUpdateClient.dll"), nullptr);
}

}  // namespace
}  // namespace zarn::testing

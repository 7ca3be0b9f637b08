// One of many callers: calls of all kinds from a seed, by the library that ships. Every call has two
// lines in the file, so that what a killed caller was about can be told:
//   begin NUMBER KIND PATH
//   end NUMBER RESULT STATUS EXIT-CODE RPC-STATUS MILLISECONDS
//
//   caller SEED CALLS FOLDER-OF-BUNDLES FOLDER-FOR-FILES NAME [INSTALLS [KIND]]
//
// INSTALLS is the weight of installs of the approved bundle, beside those below; with KIND, one of
// those installs, all calls are of that kind.
#include <windows.h>

#include <array>
#include <cstdlib>

#include "calls.h"
#include "client/zarn_update_client.h"

namespace zarn::endurance {
namespace {

struct Caller;
struct Kind {
  const char* name;
  std::uint32_t weight;
  std::int32_t (*call)(Caller&, std::wstring& path, zarn_update_answer& answer);
};

struct Caller {
  explicit Caller(char** arguments)
      : chance(std::strtoull(arguments[1], nullptr, 10)),
        bundles(wide(arguments[3])),
        folder(wide(arguments[4])),
        name(wide(arguments[5])) {}

  Chance chance;
  std::wstring bundles, folder, name;
  std::uint32_t installs = 10;
  std::string only;
  std::uint64_t number = 0;
  HANDLE file = INVALID_HANDLE_VALUE;
  const char* kind = "";

  /// Before the call, once its path is known.
  void begin(const std::wstring& path) const {
    writeLine(file, "begin " + std::to_string(number) + " " + kind + " " + narrow(path.substr(0, 300)));
  }
  std::wstring anyOf(std::initializer_list<const wchar_t*> names) {
    return bundles + L"\\" + *(names.begin() + chance.below(static_cast<std::uint32_t>(names.size())));
  }
  /// A copy of the approved bundle under a name that no other call has: by it the record of the
  /// service and the answer are brought together.
  std::wstring ownBundle() const {
    std::wstring path = folder + L"\\" + name + L"-" + std::to_wstring(number) + L".exe";
    CopyFileW((bundles + L"\\approved.exe").c_str(), path.c_str(), FALSE);
    return path;
  }
};

std::int32_t probe(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  caller.begin(path);
  return zarn_update_probe(nullptr, &answer);
}

std::int32_t check(Caller& caller, const std::wstring& path, zarn_update_answer& answer,
                   const zarn_update_options* options = nullptr) {
  caller.begin(path);
  return zarn_update_check(path.c_str(), options, &answer);
}

std::int32_t install(Caller& caller, const std::wstring& path, zarn_update_answer& answer,
                     const zarn_update_options* options = nullptr) {
  caller.begin(path);
  return zarn_update_install(path.c_str(), options, &answer);
}

std::int32_t checkMissing(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  return check(caller, path = LR"(C:\zarn-test\missing.exe)", answer);
}
std::int32_t checkRefused(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  path = caller.anyOf({L"unsigned.exe", L"changed.exe", L"untrusted-root.exe", L"expired.exe"});
  return check(caller, path, answer);
}
std::int32_t checkForeign(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  return check(caller, path = caller.anyOf({L"other-publisher.exe", L"decoy.exe"}), answer);
}
std::int32_t checkApproved(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  return check(caller, path = caller.anyOf({L"approved.exe", L"CAPITALS.EXE", L"no-extension"}), answer);
}
std::int32_t checkLimited(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  const zarn_update_options options{sizeof(options), 0, 1 + caller.chance.below(60), 0, nullptr};
  return check(caller, path = caller.anyOf({L"approved.exe", L"decoy.exe"}), answer, &options);
}

std::int32_t lookAtService(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  caller.begin(path);
  zarn_update_service service{};
  service.size = sizeof(service);
  answer.status = 0;
  return zarn_update_get_service(&service);
}
std::int32_t lookAtInstall(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  caller.begin(path);
  zarn_update_under_way underWay{};
  underWay.size = sizeof(underWay);
  answer.status = 0;
  return zarn_update_get_under_way(&underWay);
}

std::int32_t wrongArgument(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  caller.begin(path);
  switch (caller.chance.below(4)) {
    case 0:
      return zarn_update_check(L"relative.exe", nullptr, &answer);
    case 1:
      return zarn_update_install(L"", nullptr, &answer);
    case 2:
      return zarn_update_install((L"C:\\" + std::wstring(40'000, L'x')).c_str(), nullptr, &answer);
    default:
      return zarn_update_check(nullptr, nullptr, &answer);
  }
}

std::int32_t setAppData(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  static constexpr std::array<const wchar_t*, 6> kPlaces = {L"",
                                                            LR"(C:\zarn-test\data 1)",
                                                            LR"(C:\zarn-test\data 2)",
                                                            LR"(\\host\share\x)",
                                                            LR"(\\.\pipe\zarn)",
                                                            LR"(C:\windows\temp\..\temp\made by a caller)"};
  path = kPlaces[caller.chance.below(kPlaces.size())];
  caller.begin(path);
  return zarn_update_set_app_data(path.c_str(), nullptr, &answer);
}

std::int32_t installRefused(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  path = caller.anyOf({L"unsigned.exe", L"changed.exe", L"intruder.exe", L"other-publisher.exe", L"decoy.exe",
                       L"expired.exe", L"untrusted-root.exe", L"no-extension", L"missing.exe"});
  return install(caller, path, answer);
}
std::int32_t installApproved(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  const std::int32_t result = install(caller, path = caller.ownBundle(), answer);
  DeleteFileW(path.c_str());
  return result;
}
std::int32_t installCancelled(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  const HANDLE timer = CreateWaitableTimerW(nullptr, TRUE, nullptr);
  LARGE_INTEGER when;
  when.QuadPart = -10'000LL * (1 + caller.chance.below(300));
  SetWaitableTimer(timer, &when, 0, nullptr, nullptr, FALSE);
  const zarn_update_options options{sizeof(options), 0, 0, 0, timer};
  const std::int32_t result = install(caller, path = caller.ownBundle(), answer, &options);
  CloseHandle(timer);  // the copy stays: the service may still come to it
  return result;
}
std::int32_t installAndWait(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  const zarn_update_options options{sizeof(options), ZARN_UPDATE_WAIT_FOR_RESTART, 0, 20'000, nullptr};
  return install(caller, path = caller.ownBundle(), answer, &options);
}

/// Several callers exchange this file and have it installed meanwhile.
std::wstring sharedBundle(const Caller& caller) {
  return caller.folder + L"\\shared.exe";
}
std::int32_t exchangeShared(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  path = sharedBundle(caller);
  caller.begin(path);
  const std::wstring from = caller.anyOf({L"approved.exe", L"intruder.exe", L"unsigned.exe", L"decoy.exe"});
  const std::wstring own = caller.folder + L"\\" + caller.name + L".new";
  CopyFileW(from.c_str(), own.c_str(), FALSE);
  MoveFileExW(own.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
  answer.status = 0;
  return ZARN_UPDATE_OK;
}
std::int32_t installShared(Caller& caller, std::wstring& path, zarn_update_answer& answer) {
  return install(caller, path = sharedBundle(caller), answer);
}

constexpr std::uint32_t kByArgument = 0;  // the share of installs is an argument
constexpr std::array<Kind, 14> kKinds = {{{"probe", 300, probe},
                                          {"check-missing", 200, checkMissing},
                                          {"check-refused", 100, checkRefused},
                                          {"check-foreign", 30, checkForeign},
                                          {"check-approved", 40, checkApproved},
                                          {"check-limited", 20, checkLimited},
                                          {"service", 60, lookAtService},
                                          {"under-way", 60, lookAtInstall},
                                          {"wrong", 60, wrongArgument},
                                          {"app-data", 20, setAppData},
                                          {"install-refused", 30, installRefused},
                                          {"exchange", 10, exchangeShared},
                                          {"install-shared", 5, installShared},
                                          {"install", kByArgument, nullptr}}};

struct Choice {
  const char* name;
  decltype(Kind::call) call;
};
constexpr std::array<Choice, 4> kInstalls = {{{"install-approved", installApproved},
                                              {"install-approved", installApproved},
                                              {"install-cancelled", installCancelled},
                                              {"install-wait", installAndWait}}};

std::uint32_t weightOf(const Caller& caller, const Kind& kind) {
  return kind.weight == kByArgument ? caller.installs : kind.weight;
}

/// What the next call is.
Choice choose(Caller& caller) {
  for (const Choice& install : kInstalls)
    if (caller.only == install.name) return install;
  std::uint32_t all = 0;
  for (const Kind& kind : kKinds) all += weightOf(caller, kind);
  std::uint32_t drawn = caller.chance.below(all);
  std::size_t which = 0;
  for (; drawn >= weightOf(caller, kKinds[which]); ++which) drawn -= weightOf(caller, kKinds[which]);
  const Kind& kind = kKinds[which];
  return kind.call == nullptr ? kInstalls[caller.chance.below(kInstalls.size())]
                              : Choice{kind.name, kind.call};
}

void callOnce(Caller& caller) {
  const auto [name, call] = choose(caller);
  caller.kind = name;
  std::wstring path;
  zarn_update_answer answer{};
  answer.size = sizeof(answer);
  const ULONGLONG began = GetTickCount64();
  const std::int32_t result = call(caller, path, answer);
  writeLine(caller.file,
            "end " + std::to_string(caller.number) + " " + std::to_string(result) + " " +
                std::to_string(answer.status) + " " + std::to_string(answer.installer_exit_code) + " " +
                std::to_string(answer.rpc_status) + " " + std::to_string(GetTickCount64() - began));
  ++caller.number;
  // Where nobody answers, a caller waits a little, as any would.
  if (result == ZARN_UPDATE_NOT_RUNNING || result == ZARN_UPDATE_INTERRUPTED) Sleep(50);
}

int run(int count, char** arguments) {
  if (count < 6) return 2;
  Caller caller(arguments);
  if (count > 7) caller.only = arguments[7];
  if (count > 6) caller.installs = static_cast<std::uint32_t>(std::strtoul(arguments[6], nullptr, 10));
  const std::uint64_t calls = std::strtoull(arguments[2], nullptr, 10);
  caller.file = CreateFileW((caller.folder + L"\\" + caller.name + L".calls").c_str(), FILE_APPEND_DATA,
                            FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (caller.file == INVALID_HANDLE_VALUE) return 3;
  while (caller.number < calls) callOnce(caller);
  return 0;
}

}  // namespace
}  // namespace zarn::endurance

int main(int count, char** arguments) {
  return zarn::endurance::run(count, arguments);
}

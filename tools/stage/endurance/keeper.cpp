// The hand at the service: reads commands from its input, one a line, and answers each with a line.
//   start     "running PID" once its endpoint answers, or "failed CODE", within 3 min
//   stop      "ended CODE MILLISECONDS", "left CODE" (not within 60 s), "absent"
//   kill      "ended CODE MILLISECONDS" or "absent"
//   look      "running PID", "ended CODE" once when it has ended by itself, or "absent"
//   handles   "handles N", the service's; only while no process starts (handle_count.h)
//   set prefs|policy NAME TYPE HEX
//             writes a value of the registry as it is given: "done CODE"
//   unset prefs|policy NAME
//             "done CODE"
// and, heard only by the staged service with the fault switch, each "done":
//   refuse registry|FUNCTION
//             every call of that kind, or of that function, fails from now on
//   allow     none does any more; "done N" with the number of those that did
//   clock SECONDS
//             so far off is the time of day from now on
#include <windows.h>

#include <iostream>
#include <sstream>
#include <utility>
#include <vector>

#include "calls.h"
#include "client/zarn_update_client.h"
#include "faults/fault_control.h"
#include "handle_count.h"
#include "os/handles_win.h"
#include "util/product_names.h"

namespace zarn::endurance {
namespace {

constexpr ULONGLONG kStartLimitMs = 180'000;  // beside a hundred other programs that start
constexpr DWORD kStopLimitMs = 60'000;

class Keeper {
 public:
  std::string answer(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "start") return start();
    if (command == "stop") return end([this] { return requestStop(); });
    if (command == "kill") return end([this] { return TerminateProcess(process_.get(), 77) != 0; });
    if (command == "look") return look();
    if (command == "handles") return "handles " + std::to_string(isThere() ? handleCount(id_) : 0);
    if (command == "set" || command == "unset") return setValue(words, command == "set");
    if (command == "refuse" || command == "allow" || command == "clock") return order(command, words);
    return "unknown";
  }

 private:
  SERVICE_STATUS_PROCESS status() const {
    SERVICE_STATUS_PROCESS result{};
    DWORD needed = 0;
    QueryServiceStatusEx(service_.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&result),
                         sizeof(result), &needed);
    return result;
  }
  /// Wine's control manager goes on showing a process that ended without a word as running.
  bool isThere() {
    const SERVICE_STATUS_PROCESS now = status();
    if (now.dwProcessId != id_) {
      id_ = now.dwProcessId;
      isEndTold_ = false;
      process_ =
          KernelHandle(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION | PROCESS_TERMINATE, FALSE, id_));
    }
    return now.dwCurrentState == SERVICE_RUNNING && process_ &&
           WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
  }
  bool requestStop() {
    SERVICE_STATUS ignored{};
    return ControlService(service_.get(), SERVICE_CONTROL_STOP, &ignored) != 0;
  }

  std::string start() {
    const ULONGLONG began = GetTickCount64();
    for (DWORD error = 0; GetTickCount64() - began < kStartLimitMs; Sleep(20)) {
      // The state is reported just before the listener is up.
      if (isThere() && zarn_update_probe(nullptr, nullptr) == ZARN_UPDATE_OK)
        return "running " + std::to_string(id_);
      if (isThere()) continue;
      if (status().dwCurrentState == SERVICE_START_PENDING) continue;
      id_ = 0;
      if (StartServiceW(service_.get(), 0, nullptr) == 0) error = GetLastError();
      if (error != 0 && error != ERROR_SERVICE_ALREADY_RUNNING && error != ERROR_SERVICE_DATABASE_LOCKED &&
          GetTickCount64() - began > kStartLimitMs / 2)
        return "failed " + std::to_string(error);
    }
    return "failed 0";
  }

  template <typename Ask>
  std::string end(const Ask& ask) {
    if (!isThere()) return "absent";
    const ULONGLONG began = GetTickCount64();
    const DWORD error = ask() ? 0 : GetLastError();
    if (WaitForSingleObject(process_.get(), kStopLimitMs) != WAIT_OBJECT_0)
      return "left " + std::to_string(error);
    DWORD code = STILL_ACTIVE;
    GetExitCodeProcess(process_.get(), &code);
    isEndTold_ = true;
    return "ended " + std::to_string(code) + " " + std::to_string(GetTickCount64() - began);
  }

  std::string look() {
    if (!isThere()) {
      DWORD code = STILL_ACTIVE;
      if (!std::exchange(isEndTold_, true) && GetExitCodeProcess(process_.get(), &code) != 0)
        return "ended " + std::to_string(code);
      return "absent";
    }
    return "running " + std::to_string(id_);
  }

  std::string order(const std::string& command, std::istringstream& words) {
    if (command == "allow") {
      faults_.off();
      return "done " + std::to_string(faults_.section().hits.load());
    } else if (command == "clock") {
      std::int64_t seconds = 0;
      words >> seconds;
      faults_.setClockOff(seconds);
    } else {
      std::string what;
      words >> what;
      faults::Order refusal;
      refusal.limit = faults::kNoLimit;
      if (what == "registry") {
        refusal.kinds = bit(faults::Kind::Registry);
      } else {
        refusal.function = what;
      }
      faults_.arm(refusal);
    }
    return "done";
  }

  static std::string setValue(std::istringstream& words, bool isSet) {
    std::string where;
    std::string name;
    std::string hex;
    DWORD type = REG_NONE;
    words >> where >> name >> type >> hex;
    const HKEY root = where == "policy" ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    const wchar_t* const key = where == "policy" ? names::kPolicyKey.wide : names::kPreferencesKey.wide;
    if (!isSet) return "done " + std::to_string(RegDeleteKeyValueW(root, key, wide(name).c_str()));
    std::vector<BYTE> data;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
      data.push_back(static_cast<BYTE>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return "done " + std::to_string(RegSetKeyValueW(root, key, wide(name).c_str(), type, data.data(),
                                                    static_cast<DWORD>(data.size())));
  }

  ServiceHandle manager_{OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
  ServiceHandle service_{OpenServiceW(manager_.get(), names::kService.wide, SERVICE_ALL_ACCESS)};
  faults::FaultControl faults_;
  DWORD id_ = 0;
  KernelHandle process_;
  bool isEndTold_ = true;
};

}  // namespace
}  // namespace zarn::endurance

int main() {
  zarn::endurance::Keeper keeper;
  std::cout << "ready" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::cout << keeper.answer(line) << std::endl;
  }
  return 0;
}

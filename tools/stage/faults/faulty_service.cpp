#include "faults/faulty_service.h"

#include <tlhelp32.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <thread>

#include "client/service_call.h"
#include "endurance/handle_count.h"
#include "util/string_utils.h"

namespace zarn::faults {

using update_interface::Procedure;
using update_interface::rpcText;

void Caller::forgetConnections() {
  // The runtime keeps connections apart by the binding's options.
  static int generation = 0;
  const std::wstring options = L"process=" + std::to_wstring(++generation);
  RpcBindingFree(&binding_);
  RPC_WSTR text = nullptr;
  RpcStringBindingComposeW(nullptr, rpcText(update_interface::kProtocolSequence), nullptr,
                           rpcText(update_interface::kEndpoint), rpcText(options.c_str()), &text);
  RpcBindingFromStringBindingW(text, &binding_);
  RpcStringFreeW(&text);
}

std::string Caller::call(Procedure procedure, const std::string& path) const {
  const std::wstring text = StringUtils::utf8to16(path);
  const auto count = static_cast<unsigned>(text.size() + 1);
  const unsigned header[] = {count, 0, count};
  RPC_MESSAGE message = {};
  message.Handle = binding_;
  message.DataRepresentation = NDR_LOCAL_DATA_REPRESENTATION;
  message.BufferLength = static_cast<unsigned>(sizeof(header) + count * sizeof(wchar_t));
  message.ProcNum = static_cast<unsigned>(procedure);
  message.RpcInterfaceInformation = update_interface::kClientStub.RpcInterfaceInformation;
  if (I_RpcGetBuffer(&message) != RPC_S_OK) return "no answer";
  auto* const request = static_cast<char*>(message.Buffer);
  std::memcpy(request, header, sizeof(header));
  std::memcpy(request + sizeof(header), text.c_str(), count * sizeof(wchar_t));
  if (I_RpcSendReceive(&message) != RPC_S_OK) return "no answer";
  std::int32_t status = 0;  // behind all else that is answered
  if (message.BufferLength >= sizeof(status)) {
    const char* const end = static_cast<char*>(message.Buffer) + message.BufferLength;
    std::memcpy(&status, end - sizeof(status), sizeof(status));
  }
  I_RpcFreeBuffer(&message);
  return procedure == Procedure::SetLocalAppDataPath ? "done" : std::to_string(status);
}

FaultyService::FaultyService() {
  SERVICE_STATUS_PROCESS now{};
  DWORD needed = 0;
  QueryServiceStatusEx(service_.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&now), sizeof(now),
                       &needed);
  if (now.dwProcessId != 0) process_ = KernelHandle(OpenProcess(PROCESS_ALL_ACCESS, FALSE, now.dwProcessId));
  kill();
}

bool FaultyService::start() {
  kill();
  process_.reset();
  const Section& section = control.section();
  const std::uint32_t before = section.isAttached;
  std::atomic<bool> isAnswered{false};
  std::jthread catcher([&] {  // it may have ended before the control manager answers
    while (section.isAttached == before && !isAnswered) Sleep(1);
    if (section.isAttached != before)
      process_ = KernelHandle(OpenProcess(PROCESS_ALL_ACCESS, FALSE, section.processId));
  });
  caller_.forgetConnections();
  StartServiceW(service_.get(), 0, nullptr);
  isAnswered = true;
  catcher.join();
  const auto deadline = GetTickCount64() + kHangMilliseconds;
  while (isAlive() && GetTickCount64() < deadline) {
    const bool isListening =
        client::callService(client::Request::Probe, L"").ending == client::Ending::Answered;
    if (isListening && isSettled()) return true;
    Sleep(2);
  }
  return false;
}

bool FaultyService::isSettled() {
  if (control.section().mode == Mode::Off)
    return caller_.call(Procedure::CheckBundle, R"(C:\none.exe)") == "30004";
  // An answer would be made of counted calls.
  constexpr DWORD rest = 30;
  for (std::uint64_t before = kNoLimit, now = 0; (now = control.section().counter) != before; before = now)
    Sleep(rest);
  return true;
}

void FaultyService::kill() {
  if (!isAlive()) return;
  TerminateProcess(process_.get(), 1);
  WaitForSingleObject(process_.get(), kHangMilliseconds);
}

void FaultyService::killFromOutside() const {
  const KernelHandle process(
      OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, control.section().processId));
  if (!process) return;
  TerminateProcess(process.get(), 1);
  WaitForSingleObject(process.get(), kHangMilliseconds);
}

bool FaultyService::isAlive(DWORD milliseconds) {
  return process_ && WaitForSingleObject(process_.get(), milliseconds) == WAIT_TIMEOUT;
}

std::string FaultyService::end(DWORD milliseconds) {
  if (isAlive(milliseconds)) return "hangs";
  DWORD code = 0;
  return GetExitCodeProcess(process_.get(), &code) != 0 ? "ended " + std::to_string(code) : "ended unseen";
}

std::string FaultyService::stop() {
  SERVICE_STATUS ignored{};
  ControlService(service_.get(), SERVICE_CONTROL_STOP, &ignored);
  return end();
}

std::string FaultyService::request(Procedure procedure, const std::string& path) {
  auto answer = std::async(std::launch::async, [=, this] { return caller_.call(procedure, path); });
  if (answer.wait_for(std::chrono::milliseconds(kHangMilliseconds)) == std::future_status::ready)
    return answer.get();
  kill();
  return "hangs";
}

bool FaultyService::endOrphans(std::wstring_view program) {
  constexpr DWORD patience = 5000;
  bool result = false;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  const KernelHandle processes(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  for (BOOL more = Process32FirstW(processes.get(), &entry); more != FALSE;
       more = Process32NextW(processes.get(), &entry)) {
    if (entry.szExeFile != program) continue;
    const KernelHandle process(OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, entry.th32ProcessID));
    if (!process || WaitForSingleObject(process.get(), patience) == WAIT_OBJECT_0) continue;
    result = TerminateProcess(process.get(), 1) != FALSE;
    WaitForSingleObject(process.get(), kHangMilliseconds);
  }
  return result;
}

std::size_t FaultyService::held() const {
  const DWORD id = GetProcessId(process_.get());
  std::size_t count = endurance::handleCount(id);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  const KernelHandle threads(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  for (BOOL more = Thread32First(threads.get(), &entry); more != FALSE;
       more = Thread32Next(threads.get(), &entry))
    if (entry.th32OwnerProcessID == id) ++count;
  return count;
}

}  // namespace zarn::faults

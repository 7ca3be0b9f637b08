// The wire interface of the update service, UpdateInterface 1.0, as the tables
// that the RPC runtime interprets. Service and client use the same ones.
#pragma once

#include <windows.h>

#include <rpc.h>
#include <rpcndr.h>
#include <array>
#include <cstddef>

namespace zarn::update_interface {

inline constexpr wchar_t kProtocolSequence[] = L"ncalrpc";
inline constexpr wchar_t kEndpoint[] = L"UpdateServiceEndpoint";

/// A text as the RPC calls want it, which lack const where they only read.
[[nodiscard]] inline RPC_WSTR rpcText(const wchar_t* text) noexcept {
  return reinterpret_cast<RPC_WSTR>(const_cast<wchar_t*>(text));
}

/// Procedure numbers.
enum class Procedure : std::size_t { SetLocalAppDataPath = 0, CheckBundle = 1, Install = 2 };
inline constexpr std::size_t kProcedureCount = 3;

/// What the runtime calls for procedures 0 to 2. Strings are never null and
/// always end; nothing may be thrown out of a routine.
using SetLocalAppDataPathRoutine = void (*)(handle_t binding, const wchar_t* path);
using CheckBundleRoutine = long (*)(handle_t binding, const wchar_t* bundlePath);
using InstallRoutine = long (*)(handle_t binding, const wchar_t* bundlePath, long* installerExitCode);

struct ServerRoutines {
  SetLocalAppDataPathRoutine setLocalAppDataPath;
  CheckBundleRoutine checkBundle;
  InstallRoutine install;
};

inline constexpr std::size_t kProcedureFormatSize = 126;
inline constexpr std::size_t kTypeFormatSize = 16;

/// One end mark follows the descriptions of the procedures.
extern const std::array<unsigned char, kProcedureFormatSize + 1> kProcedureFormat;
extern const std::array<unsigned char, kTypeFormatSize> kTypeFormat;

/// Where each procedure begins in kProcedureFormat.
extern const std::array<unsigned short, kProcedureCount> kProcedureOffsets;

/// For NdrClientCall2.
extern const MIDL_STUB_DESC kClientStub;
[[nodiscard]] PFORMAT_STRING procedureFormat(Procedure procedure) noexcept;

/// The interface as a server registers it. Must outlive the registration; its
/// parts point at each other, so it stays where it was made.
class ServerInterface {
 public:
  explicit ServerInterface(const ServerRoutines& routines) noexcept;
  ServerInterface(const ServerInterface&) = delete;
  ServerInterface& operator=(const ServerInterface&) = delete;

  [[nodiscard]] RPC_IF_HANDLE handle() noexcept { return &interface_; }
  [[nodiscard]] const RPC_SERVER_INTERFACE& description() const noexcept { return interface_; }

 private:
  std::array<SERVER_ROUTINE, kProcedureCount> routines_;
  std::array<RPC_DISPATCH_FUNCTION, kProcedureCount + 1> dispatch_;
  RPC_DISPATCH_TABLE dispatchTable_;
  MIDL_STUB_DESC stub_;
  MIDL_SERVER_INFO server_;
  RPC_SERVER_INTERFACE interface_;
};

}  // namespace zarn::update_interface

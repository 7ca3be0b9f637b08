// How many handles another process has. Wine's GetProcessHandleCount answers 0 for every process; what is
// asked here instead ends Wine's server, and all its programs with it, when a process is just starting.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstring>
#include <vector>

// The header that declares it has no name for what is asked for here.
extern "C" __declspec(dllimport) LONG NTAPI
    NtQuerySystemInformation(ULONG what, void* buffer, ULONG bytes, ULONG* needed);

namespace zarn::endurance {

/// Of the process with this number; 0 when the system does not tell.
inline std::size_t handleCount(DWORD process) {
  struct Handle {
    void* object;
    ULONG_PTR process, value;
    ULONG access;
    USHORT trace, type;
    ULONG attributes, reserved;
  };
  constexpr ULONG kExtendedHandles = 64;
  constexpr std::size_t kHeader = 2 * sizeof(ULONG_PTR);
  std::vector<std::byte> buffer(std::size_t{4} << 20U);
  ULONG needed = 0;
  if (NtQuerySystemInformation(kExtendedHandles, buffer.data(), static_cast<ULONG>(buffer.size()), &needed) <
      0)
    return 0;
  ULONG_PTR count = 0;
  std::memcpy(&count, buffer.data(), sizeof(count));
  std::size_t found = 0;
  for (std::size_t at = kHeader; count-- > 0 && at + sizeof(Handle) <= buffer.size(); at += sizeof(Handle)) {
    Handle handle;
    std::memcpy(&handle, buffer.data() + at, sizeof(handle));
    if (handle.process == process) ++found;
  }
  return found;
}

}  // namespace zarn::endurance

// The built program: what it asks of Windows, read from its file.
#include <gtest/gtest.h>
#include <windows.h>

#include <set>

#include "support/temp_directory.h"

namespace zarn::testing {
namespace {

/// What lies at `offset` of the program, mapped as the loader does, without running any of it.
template <typename T>
const T* mapped(DWORD offset) {
  static const HMODULE program = LoadLibraryExA(ZARN_PROGRAM, nullptr, DONT_RESOLVE_DLL_REFERENCES);
  return reinterpret_cast<const T*>(reinterpret_cast<const char*>(program) + offset);
}

TEST(Program, AsksForWhatAServiceNeedsAndNoMore) {
  const auto headers = static_cast<DWORD>(mapped<IMAGE_DOS_HEADER>(0)->e_lfanew);
  const IMAGE_OPTIONAL_HEADER64& header = mapped<IMAGE_NT_HEADERS64>(headers)->OptionalHeader;
  EXPECT_EQ(header.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
  constexpr WORD highEntropy = 0x0020;
  constexpr WORD wanted =
      highEntropy | IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
  EXPECT_EQ(header.DllCharacteristics & wanted, wanted);

  // Nothing beside the program and nothing that Windows does not bring along.
  const std::set<std::string> known = {"ADVAPI32.dll", "bcrypt.dll",   "CRYPT32.dll", "imagehlp.dll",
                                       "KERNEL32.dll", "msvcrt.dll",   "RPCRT4.dll",  "SHELL32.dll",
                                       "USER32.dll",   "WINTRUST.dll", "WS2_32.dll",  "ole32.dll",
                                       "IPHLPAPI.DLL", "MSWSOCK.dll",  "VERSION.dll", "ntdll.dll"};
  const DWORD imports = header.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (const auto* entry = mapped<IMAGE_IMPORT_DESCRIPTOR>(imports); entry->Name != 0; ++entry)
    EXPECT_EQ(known.count(mapped<char>(entry->Name)), 1U) << mapped<char>(entry->Name);

  const std::string program = readFile(ZARN_PROGRAM);
  for (const char* inManifest : {"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}", "level=\"asInvoker\""})
    EXPECT_NE(program.find(inManifest), std::string::npos) << inManifest;
}

}  // namespace
}  // namespace zarn::testing

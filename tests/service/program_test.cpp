// The built program: what it asks of Windows, read from its image.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <set>
#include <string>

namespace {

/// The program mapped as the loader maps it, without running any of it.
class MappedProgram {
 public:
  MappedProgram() : module_(LoadLibraryExA(ZARN_PROGRAM, nullptr, DONT_RESOLVE_DLL_REFERENCES)) {}
  MappedProgram(const MappedProgram&) = delete;
  MappedProgram& operator=(const MappedProgram&) = delete;
  ~MappedProgram() { FreeLibrary(module_); }

  [[nodiscard]] HMODULE module() const { return module_; }

  template <typename T>
  [[nodiscard]] const T* at(DWORD offset) const {
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(module_) + offset);
  }
  [[nodiscard]] const IMAGE_OPTIONAL_HEADER64& header() const {
    const auto offset = static_cast<DWORD>(at<IMAGE_DOS_HEADER>(0)->e_lfanew);
    return at<IMAGE_NT_HEADERS64>(offset)->OptionalHeader;
  }
  [[nodiscard]] std::set<std::string> importedLibraries() const {
    std::set<std::string> names;
    const auto* entry =
        at<IMAGE_IMPORT_DESCRIPTOR>(header().DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
    for (; entry->Name != 0; ++entry) names.insert(at<char>(entry->Name));
    return names;
  }
  [[nodiscard]] std::string resource(const char* name, const char* type) const {
    const HRSRC found = FindResourceA(module_, name, type);
    if (found == nullptr) return {};
    const void* const data = LockResource(LoadResource(module_, found));
    return {static_cast<const char*>(data), SizeofResource(module_, found)};
  }

 private:
  HMODULE module_;
};

TEST(Program, AsksForWhatAServiceNeedsAndNoMore) {
  const MappedProgram program;
  ASSERT_NE(program.module(), nullptr) << GetLastError();
  EXPECT_EQ(program.header().Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
  constexpr WORD highEntropy = 0x0020;
  constexpr WORD wanted =
      highEntropy | IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
  EXPECT_EQ(program.header().DllCharacteristics & wanted, wanted);

  // Nothing beside the program and nothing that Windows does not bring along.
  const std::set<std::string> known = {"ADVAPI32.dll", "bcrypt.dll",   "CRYPT32.dll", "imagehlp.dll",
                                       "KERNEL32.dll", "msvcrt.dll",   "RPCRT4.dll",  "SHELL32.dll",
                                       "USER32.dll",   "WINTRUST.dll", "WS2_32.dll",  "ole32.dll",
                                       "IPHLPAPI.DLL", "MSWSOCK.dll"};
  for (const std::string& library : program.importedLibraries())
    EXPECT_EQ(known.count(library), 1U) << library;

  const std::string manifest = program.resource(MAKEINTRESOURCEA(1), MAKEINTRESOURCEA(24));
  EXPECT_NE(manifest.find("{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"), std::string::npos);
  EXPECT_NE(manifest.find("level=\"asInvoker\""), std::string::npos);
  EXPECT_NE(program.resource(MAKEINTRESOURCEA(VS_VERSION_INFO), MAKEINTRESOURCEA(16)), "");
}

}  // namespace

// Runs a program and keeps all that it says. Windows only.
#pragma once

#include <windows.h>

#include <vector>

#include "os/handles_win.h"
#include "support/temp_directory.h"
#include "util/string_utils.h"

namespace zarn::testing {

struct ProgramRun {
  DWORD exitCode = 0;
  std::string output, error;
};

/// Waits for the program's end. No argument may have quotation marks or end in a backslash.
/// What goes to `elsewhere`, an inheritable handle, is not kept.
inline ProgramRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                             HANDLE elsewhere = nullptr) {
  const TempDirectory said;
  const auto inheritedFile = [&](const char* name) {
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    return FileHandle(CreateFileW(FileUtils::toPath(said / name).c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                  &inherited, CREATE_NEW, 0, nullptr));
  };
  const FileHandle output = inheritedFile("output"), error = inheritedFile("error");
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = elsewhere != nullptr ? elsewhere : output.get();
  startup.hStdError = error.get();
  std::string commandLine = "\"" + program + "\"";
  for (const auto& argument : arguments) commandLine.append(" \"").append(argument).append("\"");
  std::wstring wide = StringUtils::utf8to16(commandLine);
  PROCESS_INFORMATION information{};
  if (!CreateProcessW(nullptr, wide.data(), nullptr, nullptr, 1, 0, nullptr, nullptr, &startup, &information))
    return {GetLastError(), "", "not started"};
  const KernelHandle process(information.hProcess), thread(information.hThread);
  WaitForSingleObject(process.get(), INFINITE);
  ProgramRun run{0, readFile(said / "output"), readFile(said / "error")};
  GetExitCodeProcess(process.get(), &run.exitCode);
  return run;
}

}  // namespace zarn::testing

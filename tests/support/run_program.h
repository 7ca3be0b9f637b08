// Runs a program and keeps all that it says. Windows only.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "util/string_utils.h"
#include "util/windows_handles.h"

namespace zarn::testing {

struct ProgramRun {
  DWORD exitCode = 0;
  std::string output;
  std::string error;
};

namespace detail {

struct Pipe {
  KernelHandle read;
  KernelHandle write;  // inherited by the program
};

inline Pipe makePipe() {
  Pipe pipe;
  SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
  CreatePipe(pipe.read.receive(), pipe.write.receive(), &inherited, 0);
  SetHandleInformation(pipe.read.get(), HANDLE_FLAG_INHERIT, 0);
  return pipe;
}

/// Takes what is in the pipe now. Its end may be far: a process that outlives the
/// program can have inherited the other side.
inline void drain(HANDLE pipe, std::string& text) {
  char buffer[4096];
  DWORD count = 0;
  while (PeekNamedPipe(pipe, nullptr, 0, nullptr, &count, nullptr) != 0 && count != 0 &&
         ReadFile(pipe, buffer, sizeof(buffer), &count, nullptr) != 0) {
    text.append(buffer, count);
  }
}

/// One argument as CommandLineToArgvW reads it back.
inline std::string quoted(const std::string& argument) {
  std::string result = "\"";
  std::size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '"') result.append(backslashes + 1, '\\');
    backslashes = c == '\\' ? backslashes + 1 : 0;
    result += c;
  }
  return result.append(backslashes, '\\') + "\"";
}

}  // namespace detail

/// Waits for the program's end. `output`, when valid, is its standard output.
inline ProgramRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                             HANDLE output = nullptr) {
  detail::Pipe out = detail::makePipe();
  detail::Pipe err = detail::makePipe();
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output != nullptr ? output : out.write.get();
  startup.hStdError = err.write.get();
  std::string commandLine = detail::quoted(program);
  for (const auto& argument : arguments) commandLine += " " + detail::quoted(argument);
  std::wstring wide = StringUtils::utf8to16(commandLine);
  PROCESS_INFORMATION information{};
  ProgramRun run;
  if (CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &information) == 0) {
    run.exitCode = GetLastError();
    run.error = "not started";
    return run;
  }
  const KernelHandle process(information.hProcess);
  const KernelHandle thread(information.hThread);
  constexpr DWORD pollMs = 5;
  DWORD waited = WAIT_TIMEOUT;
  while (waited == WAIT_TIMEOUT) {
    waited = WaitForSingleObject(process.get(), pollMs);
    detail::drain(out.read.get(), run.output);
    detail::drain(err.read.get(), run.error);
  }
  GetExitCodeProcess(process.get(), &run.exitCode);
  return run;
}

}  // namespace zarn::testing

// Stands in for an update's installer: does what a plan file says and keeps a
// record of having run. Built twice: as the genuine installer and as an
// intruder that must never run.
//
// The plan, C:\zarn-test\plan.txt, one "name=value" a line:
//   exit=N      ends with this code (default 0)
//   sleep_ms=N  sleeps first
//   log=NAME    writes a file of this name into the temporary directory; may be repeated
// The record, C:\zarn-test\runs.txt, gets one line at the start and one at the end:
//   start|end <who> <pid> <milliseconds since boot> <command line>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

#ifndef INSTALLER_NAME
#define INSTALLER_NAME "genuine"
#endif

void record(const char* event) {
  // Appending writes are atomic between processes.
  const HANDLE file =
      CreateFileW(LR"(C:\zarn-test\runs.txt)", FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  char line[2048];
  const int length = std::snprintf(line, sizeof(line), "%s " INSTALLER_NAME " %lu %llu %s\n", event,
                                   GetCurrentProcessId(), GetTickCount64(), GetCommandLineA());
  DWORD written = 0;
  if (length > 0) WriteFile(file, line, static_cast<DWORD>(length), &written, nullptr);
  CloseHandle(file);
}

void writeLog(const std::string& name) {
  char folder[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, folder);
  if (std::FILE* const file = std::fopen((folder + name).c_str(), "w")) {
    std::fprintf(file, "log of %s\n", name.c_str());
    std::fclose(file);
  }
}

}  // namespace

int main() {
  record("start");
  int exitCode = 0;
  unsigned sleepMs = 0;
  if (std::FILE* const plan = std::fopen(R"(C:\zarn-test\plan.txt)", "r")) {
    char line[512];
    while (std::fgets(line, sizeof(line), plan) != nullptr) {
      std::string text(line);
      while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
      if (text.rfind("exit=", 0) == 0) exitCode = std::atoi(text.c_str() + 5);
      if (text.rfind("sleep_ms=", 0) == 0) sleepMs = static_cast<unsigned>(std::atoi(text.c_str() + 9));
      if (text.rfind("log=", 0) == 0) writeLog(text.substr(4));
    }
    std::fclose(plan);
  }
  Sleep(sleepMs);
  record("end");
  return exitCode;
}

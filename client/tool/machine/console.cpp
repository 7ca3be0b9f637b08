#include "client/tool/machine/console.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "client/tool/report/answer.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

HANDLE handleOf(Stream stream) noexcept {
  return GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

Result<void> writeToTerminal(HANDLE terminal, std::wstring_view text) noexcept {
  constexpr std::size_t atOnce = 8192;  // a console takes no more than 64 KiB in one call
  while (!text.empty()) {
    const auto count = static_cast<DWORD>(std::min(text.size(), atOnce));
    DWORD written = 0;
    if (WriteConsoleW(terminal, text.data(), count, &written, nullptr) == 0 || written == 0) {
      return lastFailure();
    }
    text.remove_prefix(written);
  }
  return {};
}

Result<void> writeToFile(HANDLE file, std::string_view text) noexcept {
  while (!text.empty()) {
    DWORD written = 0;
    if (WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == 0) {
      return lastFailure();
    }
    // A full disk can show as nothing written.
    if (written == 0) return failure(ERROR_DISK_FULL);
    text.remove_prefix(written);
  }
  return {};
}

/// Of the window that shows the terminal; what is usual where nothing says.
std::size_t columnsOf(Stream stream) noexcept {
  constexpr std::size_t usual = 80;
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(handleOf(stream), &info) == 0) return usual;
  const int columns = info.srWindow.Right - info.srWindow.Left + 1;
  return columns > 1 ? static_cast<std::size_t>(columns) : usual;
}

/// What an interruption says; null while nobody wants to hear of one. The system calls
/// the handler on a thread of its own.
std::atomic<const char*> currentSentence{nullptr};
/// For whom JSON is wanted; null otherwise.
std::atomic<const char*> jsonCommand{nullptr};

BOOL WINAPI interrupted(DWORD) noexcept {
  const char* const sentence = currentSentence.load();
  if (sentence == nullptr) return FALSE;
  if (const char* const command = jsonCommand.load()) {
    static_cast<void>(write(Stream::Output, jsonText(failed(ExitCode::Interrupted, sentence), command)));
  }
  static_cast<void>(write(Stream::Error, std::string("\nzarn-update: ") + sentence + "\n"));
  // The call to the service goes on in another thread, which nothing can end in an orderly way.
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ExitCode::Interrupted));
  return TRUE;
}

}  // namespace

bool isTerminal(Stream stream) noexcept {
  DWORD mode = 0;
  return GetConsoleMode(handleOf(stream), &mode) != 0;
}

Result<void> write(Stream stream, std::string_view text) {
  const HANDLE handle = handleOf(stream);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return {};
  return isTerminal(stream) ? writeToTerminal(handle, StringUtils::utf8to16(text))
                            : writeToFile(handle, text);
}

bool isReaderGone(SystemError error) noexcept {
  return error == SystemError(ERROR_BROKEN_PIPE) || error == SystemError(ERROR_NO_DATA) ||
         error == SystemError(ERROR_PIPE_NOT_CONNECTED);
}

void ProgressLine::show(std::string_view text) {
  // A line that is full would go on in the next, which "\r" does not take back.
  text = text.substr(0, columnsOf(Stream::Error) - 1);
  if (text == shown_) return;
  std::string line(text);
  // Blanks cover what is left of a longer text.
  line.append(shown_.size() - std::min(shown_.size(), line.size()), ' ');
  shown_ = text;
  static_cast<void>(write(Stream::Error, "\r" + line));
}

void ProgressLine::clear() {
  if (!shown_.empty()) static_cast<void>(write(Stream::Error, "\r" + std::string(shown_.size(), ' ') + "\r"));
  shown_.clear();
}

void Interruption::answerInJson(const char* command) noexcept {
  jsonCommand.store(command);
}

Interruption::Interruption(const char* sentence) noexcept : former_(currentSentence.exchange(sentence)) {
  if (former_ == nullptr) SetConsoleCtrlHandler(interrupted, TRUE);
}

Interruption::~Interruption() {
  currentSentence.store(former_);
  if (former_ == nullptr) SetConsoleCtrlHandler(interrupted, FALSE);
}

}  // namespace zarn::tool

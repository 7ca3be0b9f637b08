// Setup's own log: what it did and why it could not, for silent runs.
#pragma once

#include <string>

namespace zarn::setup {

/// "Logs\Zarn Update Service Setup.log" in the Windows folder, where only
/// administrators can write.
[[nodiscard]] std::wstring defaultLogFile();

/// Appends one line (UTF-8) with the local time. A log that cannot be written
/// stops nothing.
void appendToLog(const std::wstring& file, const std::wstring& line) noexcept;

}  // namespace zarn::setup

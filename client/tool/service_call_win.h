// What the commands that call the service have in common.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/tool/answer.h"
#include "client/update_client.h"

namespace zarn::tool {

/// The path as seen from the current directory, since the service has another
/// one. `path` is UTF-8; empty when it cannot be a path.
[[nodiscard]] std::wstring absolutePath(const std::string& path);

/// The failure when nothing is at the path, or a folder, and the caller can see
/// that; nothing when the service may judge it.
[[nodiscard]] std::optional<Answer> missingFile(const std::wstring& path);

/// The failure that a call without an answer is.
[[nodiscard]] Answer noAnswer(const client::CallError& error);

/// Says the status in words and numbers, and sets the exit code by it. `verdict`
/// is the first word of the text.
void describeStatus(Answer& answer, std::int32_t status);

/// 0, 30000 and 30001.
[[nodiscard]] bool isSuccess(std::int32_t status) noexcept;

}  // namespace zarn::tool

// What the commands that call the service have in common.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/tool/answer.h"
#include "client/update_client.h"

namespace zarn::tool {

/// The path as seen from the current directory, since the service has another
/// one, with the long-path prefix where it needs it. `path` is UTF-8; empty when
/// it cannot be a path.
[[nodiscard]] std::wstring absolutePath(const std::string& path);

/// The failure when nothing is at the path, or a folder, and the caller can see
/// that; nothing when the service may judge it.
[[nodiscard]] std::optional<Answer> missingFile(const std::wstring& path);

/// The failure that a call without an answer is.
[[nodiscard]] Answer noAnswer(const client::CallError& error);

/// Says an installation's status in words and numbers, and sets the exit code by it.
void describeStatus(Answer& answer, std::int32_t status);

/// The same for a judgement without an installation, where kInstalled means
/// trusted. `advice` replaces the status's own, a sentence without a full stop.
void describeVerdict(Answer& answer, std::int32_t status,
                     const std::optional<std::string>& advice = std::nullopt);

/// 0, 30000 and 30001.
[[nodiscard]] bool isSuccess(std::int32_t status) noexcept;

}  // namespace zarn::tool

// What the logger needs of the platform; not for other libraries.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "log/log_item.h"

namespace zarn::platform {

[[nodiscard]] LogTime currentLogTime() noexcept;

/// How long the idle writer waits before it looks for lines again while more may
/// soon follow; zero: it sleeps until it is woken.
///
/// Zero on Windows, where even the shortest wait lasts a tick of the system's timer,
/// and a line would stay out of the file so long. Elsewhere polling spares threads
/// that log the cost of waking the writer; it sleeps all the same when no line comes
/// for some milliseconds, so that the sanitizers see both ways.
[[nodiscard]] std::chrono::microseconds writerPollInterval() noexcept;

/// Writes `text` to the file's descriptor, past the C library's buffer, whose content
/// after a failure differs from library to library: some keep what they could not
/// write and write it later, others drop it. The only way in which anything may be
/// written to `file`. Whether all of it was written; some of it may have been.
[[nodiscard]] bool writeThrough(std::FILE& file, std::string_view text) noexcept;

/// Makes an open file empty; what is written next is its beginning.
[[nodiscard]] bool emptyFile(std::FILE& file) noexcept;

/// Ends the process with the exception code 0xC0DEDEAD (natively: by abort()).
[[noreturn]] void endAfterFatalError() noexcept;

}  // namespace zarn::platform

// Takes secrets out of log lines.
#pragma once

#include <string>

namespace zarn {

/// Overwrites with the letter x what follows each marker of scrub_rules.h, as if
/// its rules were applied one after another: after a marker, one quote character
/// is passed over, then up to the rule's mask length of bytes are masked, or as
/// many as there are. A longer value keeps its tail, a shorter one takes the bytes
/// behind it along. With `crashKeysOnly` just the keys of the crash reporter.
/// The length never changes and nothing is allocated. From any thread.
void scrubTokens(std::string& message, bool crashKeysOnly) noexcept;

}  // namespace zarn

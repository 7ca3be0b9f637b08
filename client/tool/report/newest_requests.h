// The newest records of files to which records are appended, read from their ends, so that
// the last of many costs as much as the last of few.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/history.h"
#include "os/system_error.h"
#include "update/install_record.h"

namespace zarn::tool {

/// A file's bytes from `offset` on; fewer only when the file has become shorter.
using ReadBlock = std::function<Result<std::string>(std::int64_t offset, std::size_t bytes)>;

/// The lines of a file that are not blank, from its end towards its beginning.
class LinesFromEnd {
 public:
  /// `size` is the file's; of it no more than the last `maximumBytes` are read, `blockBytes`
  /// or more at a time. The line that this cuts is left out.
  LinesFromEnd(std::int64_t size, std::int64_t maximumBytes, ReadBlock read,
               std::size_t blockBytes = std::size_t{64} << 10);

  /// Nothing at the beginning, or when the file can be read no further.
  [[nodiscard]] std::optional<std::string> next();

  /// Whether lines at the file's beginning were left out, which is known at the end.
  [[nodiscard]] bool isCut() const noexcept { return isAtEnd_ && begin_ > 0; }
  /// Why the file could be read no further.
  [[nodiscard]] const std::optional<SystemError>& problem() const noexcept { return problem_; }

 private:
  bool readBlock();

  ReadBlock read_;
  std::size_t blockBytes_;
  std::int64_t begin_;
  std::int64_t at_;  ///< where what is in the buffer begins
  std::string buffer_;
  /// At the buffer's end, without a line break.
  std::size_t searched_ = 0;
  bool isAtEnd_ = false;
  std::optional<SystemError> problem_;
};

/// Files that follow one another, the newest first: one sequence, whatever its times say.
using RecordSequence = std::vector<LinesFromEnd>;

/// Which requests are wanted.
struct HistoryWish {
  std::size_t last = 0;  ///< the newest so many; 0 for all
  bool onlyFailed = false;
  std::string since{};       ///< see isoTime(); empty for any time
  bool onlyUpdates = false;  ///< for which an installer was started
};

/// The newest requests of sequences that were written side by side, merged by time without
/// sorting: each keeps its order, also when a clock was put back. What is older than what
/// is wanted is not read, or only counted.
[[nodiscard]] History newestRequests(std::vector<RecordSequence> sequences, const HistoryWish& wish);

}  // namespace zarn::tool

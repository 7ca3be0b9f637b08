#include "client/tool/report/newest_requests.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string_view>
#include <utility>

#include "client/tool/report/moments.h"
#include "update/status.h"

namespace zarn::tool {
namespace {

constexpr SystemError kEndOfFile(38);  // ERROR_HANDLE_EOF

/// Records that are not shown are counted among so many lines of a sequence and no more,
/// which is more than most machines ever have.
constexpr std::size_t kMostCounted = 1999;

/// A record has the time of its request's beginning and its place by the end, and a clock may be
/// put back: what is older by no more than this may have newer ones before it.
constexpr std::chrono::hours kDisorder(24);

bool isBlank(std::string_view line) {
  return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

/// One sequence, with its newest record that is not taken yet.
struct Reading {
  RecordSequence files;
  std::size_t file = 0;
  std::optional<InstallRecord> head;
  std::size_t skipped = 0;

  std::optional<std::string> nextLine() {
    for (; file < files.size(); ++file) {
      if (auto line = files[file].next()) return line;
    }
    return std::nullopt;
  }
  void advance() {
    head.reset();
    while (const auto line = nextLine()) {
      head = parseRecord(*line);
      if (head) return;
      ++skipped;
    }
  }
};

/// Whose record is the newest; of two with the same time that of the later sequence.
Reading* newestOf(std::vector<Reading>& readings) {
  Reading* newest = nullptr;
  for (Reading& one : readings) {
    if (one.head && (newest == nullptr || one.head->time >= newest->head->time)) newest = &one;
  }
  return newest;
}

/// How many lines there are still, and whether that are all.
void countOlder(std::vector<Reading>& readings, History& history) {
  std::size_t count = 0;
  bool isAll = true;
  for (Reading& one : readings) {
    if (one.head) ++count;
    std::size_t lines = 0;
    while (lines < kMostCounted && one.nextLine()) ++lines;
    isAll = isAll && lines < kMostCounted;
    count += lines;
  }
  history.older = OlderRequests{count, isAll};
}

bool isWanted(const InstallRecord& record, const HistoryWish& wish) {
  if (wish.onlyFailed && isSuccess(record.status)) return false;
  return (!wish.onlyUpdates || record.exitCode) && record.time >= wish.since;
}

/// Takes the newest until there are enough, or all that can be wanted are read.
void take(std::vector<Reading>& readings, const HistoryWish& wish, History& history) {
  const std::string oldest = wish.since.empty() ? "" : momentBefore(wish.since, kDisorder);
  while (Reading* const newest = newestOf(readings)) {
    InstallRecord& record = *newest->head;
    if (record.time < oldest) return;
    const bool wanted = isWanted(record, wish);
    if (wanted && wish.last != 0 && history.records.size() == wish.last) {
      history.older = OlderRequests{};
      if (!wish.onlyFailed && !wish.onlyUpdates && wish.since.empty()) countOlder(readings, history);
      return;
    }
    if (wanted) history.records.push_back(std::move(record));
    newest->advance();
  }
}

}  // namespace

LinesFromEnd::LinesFromEnd(std::int64_t size, std::int64_t maximumBytes, ReadBlock read,
                           std::size_t blockBytes)
    : read_(std::move(read)),
      blockBytes_(blockBytes),
      begin_(std::max<std::int64_t>(0, size - maximumBytes)),
      at_(std::max<std::int64_t>(0, size)) {}

bool LinesFromEnd::readBlock() {
  // As much again as there is, so that a line of any length is moved a few times only.
  const auto wanted = static_cast<std::int64_t>(std::max(blockBytes_, buffer_.size()));
  const std::int64_t bytes = std::min(wanted, at_ - begin_);
  auto block = read_(at_ - bytes, static_cast<std::size_t>(bytes));
  // What grows shorter is not appended to, and so is no file of records.
  if (block && std::ssize(*block) != bytes) block = failure(kEndOfFile);
  if (!block) {
    problem_ = block.error();
    return false;
  }
  at_ -= bytes;
  buffer_.insert(0, *block);
  return true;
}

std::optional<std::string> LinesFromEnd::next() {
  while (!isAtEnd_) {
    const std::size_t open = buffer_.size() - searched_;
    const std::size_t lineBreak = open == 0 ? std::string::npos : buffer_.rfind('\n', open - 1);
    const bool isFirst = lineBreak == std::string::npos && at_ == begin_;
    if (lineBreak == std::string::npos && !isFirst) {
      searched_ = buffer_.size();
      isAtEnd_ = !readBlock();
      continue;
    }
    std::string line = isFirst ? std::move(buffer_) : buffer_.substr(lineBreak + 1);
    buffer_.resize(isFirst ? 0 : lineBreak);
    searched_ = 0;
    isAtEnd_ = isFirst;
    const bool isTorn = isFirst && begin_ > 0;
    if (!isTorn && !isBlank(line)) return line;
  }
  return std::nullopt;
}

History newestRequests(std::vector<RecordSequence> sequences, const HistoryWish& wish) {
  History history;
  history.isPart = wish.onlyFailed || wish.onlyUpdates || !wish.since.empty();
  std::vector<Reading> readings;
  readings.reserve(sequences.size());
  for (RecordSequence& files : sequences) {
    readings.push_back({std::move(files), 0, std::nullopt, 0});
    readings.back().advance();
  }
  take(readings, wish, history);
  std::ranges::reverse(history.records);
  for (const Reading& reading : readings) {
    history.skipped += reading.skipped;
    for (const LinesFromEnd& file : reading.files) {
      history.isCut = history.isCut || file.isCut();
      if (file.problem()) history.unread = file.problem();
    }
  }
  return history;
}

}  // namespace zarn::tool

// The SHA-256 of an open file, worked out while its owner does something else.
#pragma once

#include <windows.h>

#include <string>
#include <thread>

namespace zarn {

class BackgroundDigest {
 public:
  /// Reads `file` to its end on a thread of its own. The handle must allow reading,
  /// outlive the object and be used by nobody else meanwhile.
  explicit BackgroundDigest(HANDLE file) noexcept;
  BackgroundDigest(const BackgroundDigest&) = delete;
  BackgroundDigest& operator=(const BackgroundDigest&) = delete;
  ~BackgroundDigest() { finish(); }

  /// Waits for the end: 64 lower-case hexadecimal digits; empty when the file cannot
  /// be read or no thread was to be had.
  const std::string& finish() noexcept;

 private:
  std::string digest_;
  std::thread thread_;
};

}  // namespace zarn

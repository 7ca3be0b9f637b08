// The driver's side of the fault switch (fault_section.h): makes the section and tells the
// program what to do. Make it before the program starts and keep it as long as it runs.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "faults/fault_section.h"
#include "os/handles_win.h"

namespace zarn::faults {

struct Order {
  Mode mode = Mode::Fail;
  std::uint32_t kinds = kAllKinds;
  /// A function's name in the table, or empty for any.
  std::string function = {};
  std::uint64_t site = 0;
  std::uint64_t wanted = 1;
  std::uint64_t limit = 1;  ///< kNoLimit: every call from there on
};

class FaultControl {
 public:
  /// Throws std::runtime_error when the section cannot be had.
  FaultControl();
  ~FaultControl();
  FaultControl(const FaultControl&) = delete;
  FaultControl& operator=(const FaultControl&) = delete;

  /// Sets the counters back and has the order followed from here on. Throws
  /// std::invalid_argument when no function has that name.
  void arm(const Order& order);
  void off() noexcept { section_->mode = Mode::Off; }
  /// Sets the counted sites back, too.
  void forgetSites() noexcept;

  /// Whether the program stopped, as Mode::Stop says, before `process` ended or the
  /// milliseconds were over.
  bool waitUntilStopped(HANDLE process, DWORD milliseconds) const;

  /// Added to the time of day, in seconds.
  void setClockOff(std::int64_t seconds) noexcept { section_->clockOffset = seconds * 10'000'000; }

  [[nodiscard]] const Section& section() const noexcept { return *section_; }
  /// The name of the function that failed or stopped first; empty when none did.
  [[nodiscard]] std::string hitFunction() const;
  /// Functions that the program asked for and the table does not know; none may be.
  [[nodiscard]] std::vector<std::string> unknown() const;

 private:
  KernelHandle mapping_;
  KernelHandle stopped_;
  Section* section_ = nullptr;
};

}  // namespace zarn::faults

#include "faults/fault_control.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "faults/fault_table.h"

namespace zarn::faults {

FaultControl::FaultControl()
    : mapping_(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Section),
                                  kSectionName)),
      stopped_(CreateEventW(nullptr, FALSE, FALSE, kStoppedEventName)) {
  if (mapping_)
    section_ =
        static_cast<Section*>(MapViewOfFile(mapping_.get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Section)));
  if (section_ == nullptr || !stopped_) throw std::runtime_error("the fault switch's section cannot be had");
  section_->mode = Mode::Off;
  section_->depth = kSiteDepth;
  section_->clockOffset = 0;
  section_->version = kVersion;
}

FaultControl::~FaultControl() {
  off();
  setClockOff(0);
  UnmapViewOfFile(section_);
}

void FaultControl::arm(const Order& order) {
  const std::int32_t function = order.function.empty() ? kAnyFunction : rowOf(order.function);
  if (function == kAnyFunction && !order.function.empty())
    throw std::invalid_argument("the table has no " + order.function);
  off();
  ResetEvent(stopped_.get());
  section_->kinds = order.kinds;
  section_->function = function;
  section_->site = order.site;
  section_->wanted = order.wanted;
  section_->limit = order.limit;
  section_->counter = 0;
  section_->hits = 0;
  section_->hitSite = 0;
  section_->hitFunction = kAnyFunction;
  section_->mode = order.mode;
}

void FaultControl::forgetSites() noexcept {
  section_->lostSites = 0;
  for (Site& site : section_->sites) {
    site.calls = 0;
    site.id = 0;
  }
}

bool FaultControl::waitUntilStopped(HANDLE process, DWORD milliseconds) const {
  const std::array<HANDLE, 2> either = {stopped_.get(), process};
  return WaitForMultipleObjects(2, either.data(), FALSE, milliseconds) == WAIT_OBJECT_0;
}

std::string FaultControl::hitFunction() const {
  const std::int32_t row = section_->hitFunction;
  if (row == kAnyFunction) return {};
  return std::string(functionTable()[static_cast<std::size_t>(row)].name);
}

std::vector<std::string> FaultControl::unknown() const {
  const std::size_t count = std::min<std::size_t>(section_->unknownCount, std::size(section_->unknown));
  return {section_->unknown, section_->unknown + count};
}

}  // namespace zarn::faults

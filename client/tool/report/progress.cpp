#include "client/tool/report/progress.h"

#include <fmt/format.h>

namespace zarn::tool {
namespace {

constexpr std::chrono::seconds kPatience(10);

std::string inSeconds(std::chrono::milliseconds elapsed) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(elapsed).count();
  return seconds < 60 ? fmt::format("{} s", seconds)
                      : fmt::format("{} min {:02} s", seconds / 60, seconds % 60);
}

const char* comfort(std::chrono::milliseconds elapsed) noexcept {
  return elapsed < kPatience ? "" : "; Ctrl+C ends only this wait";
}

}  // namespace

std::string installingText(std::chrono::milliseconds elapsed, std::string_view serviceState) {
  return fmt::format("Installing for {}; the service is {}{}", inSeconds(elapsed), serviceState,
                     comfort(elapsed));
}

std::string waitingText(std::chrono::milliseconds elapsed) {
  return fmt::format("An update is being installed; waited {}{}", inSeconds(elapsed), comfort(elapsed));
}

}  // namespace zarn::tool

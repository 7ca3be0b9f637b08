#include "client/tool/machine/side_by_side.h"

#include <exception>
#include <iterator>
#include <utility>

namespace zarn::tool {

void SideBySide::begin(std::string name, std::chrono::seconds limit, Check check) {
  const auto due = std::chrono::steady_clock::now() + limit;
  BegunWork<std::vector<Finding>> work([name, check = std::move(check)]() -> std::vector<Finding> {
    try {
      return check();
    } catch (const std::exception& error) {
      return {{name, false, std::string("broke off: ") + error.what(), "Try again"}};
    }
  });
  running_.push_back({std::move(name), limit, due, std::move(work)});
}

std::vector<Finding> SideBySide::collect() {
  std::vector<Finding> all;
  for (auto& [name, limit, due, work] : running_) {
    auto found = work.take(due);
    if (!found) {
      found = {{name, false, "no end after " + std::to_string(limit.count()) + " s",
                "Find out what holds it up: a drive, a name server or a service of the system that does not "
                "answer"}};
    }
    std::move(found->begin(), found->end(), std::back_inserter(all));
  }
  return all;
}

}  // namespace zarn::tool

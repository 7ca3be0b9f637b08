// A full disk, as far as this process can tell.
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace zarn::testing {

/// Does `work` while files of this process cannot grow beyond `bytes`: writes take what fits, then fail.
template <typename Work>
auto withFileSizeLimit(rlim_t bytes, Work work) {
  auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit now{bytes, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &now);
  const auto result = work();
  setrlimit(RLIMIT_FSIZE, &before);
  static_cast<void>(std::signal(SIGXFSZ, handler));
  return result;
}

}  // namespace zarn::testing

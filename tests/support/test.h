// What nearly every test needs: the frameworks, the recorded log, a directory of its own, short names.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <limits>
#include <list>
#include <set>
#include <thread>

#include "support/recording_log.h"
#include "support/table.h"
#include "support/temp_directory.h"

namespace zarn::testing {

namespace fs = boost::filesystem;
using FileUtils::toPath;
using FileUtils::toUtf8;
using namespace std::chrono_literals;
using namespace std::string_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using Lines = std::vector<std::string>;

/// For the test program, and for the programs that it starts.
inline void setEnvironment(const std::string& name, const std::string& text) {
  static std::list<std::string> kept;  // putenv() takes no copy
  ::putenv(kept.emplace_back(name + "=" + text).data());
}

}  // namespace zarn::testing

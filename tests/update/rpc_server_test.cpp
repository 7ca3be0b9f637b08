#include "update/rpc_server.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/recording_log.h"

namespace zarn::rpc_server {
namespace {

TEST(RpcServer, LetsNothingThrownOut) {
  const testing::RecordingLog log;
  const auto answer = [](const auto& work) { return answerCall("Install", L"p", Status::Failed, work); };
  EXPECT_EQ(answer([](const std::wstring&) { return Status::RebootRequired; }), Status::RebootRequired);
  EXPECT_EQ(answer([](auto&) -> Status { throw std::runtime_error("two\nlines"); }), Status::Failed);
  EXPECT_EQ(answer([](auto&) -> Status { throw 7; }), Status::Failed);
  EXPECT_EQ(log.texts(), (std::vector<std::string>{
                             "Install: Caught std::exception two\\x0alines, type: std::runtime_error",
                             "Install: Caught std::exception unknown, type: unknown"}));
}

TEST(RpcServer, RefusesPathsThatWindowsCannotHave) {
  const testing::RecordingLog log;
  const auto accept = [](const std::wstring&) { return Status::Installed; };
  const std::wstring longest(32'767, L'x');
  EXPECT_EQ(answerCall("Install", longest.c_str(), Status::Failed, accept), Status::Installed);
  EXPECT_EQ(answerCall("Install", (longest + L'x').c_str(), Status::Failed, accept), Status::Failed);
  EXPECT_EQ(answerCall("Install", nullptr, Status::Failed, accept), Status::Failed);
  EXPECT_EQ(log.count("Install: the path is missing or too long."), 2);
}

}  // namespace
}  // namespace zarn::rpc_server

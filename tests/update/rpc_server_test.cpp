#include "update/rpc_server.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/recording_log.h"

namespace zarn::rpc_server {
namespace {

TEST(RpcServer, LetsNothingThrownOutAndNoPathInThatWindowsCannotHave) {
  const testing::RecordingLog log;
  const std::wstring longest(32'767, L'x');
  const auto accept = [](auto&) { return Status::RebootRequired; };
  const auto answer = [](const wchar_t* path, const auto& work) {
    return answerCall("Install", path, Status::Failed, work);
  };
  EXPECT_EQ(answer(longest.c_str(), accept), Status::RebootRequired);
  EXPECT_EQ(answer((longest + L'x').c_str(), accept), Status::Failed);
  EXPECT_EQ(answer(nullptr, accept), Status::Failed);
  EXPECT_EQ(answer(L"p", [](auto&) -> Status { throw std::runtime_error("two\nlines"); }), Status::Failed);
  EXPECT_EQ(answer(L"p", [](auto&) -> Status { throw 7; }), Status::Failed);
  const std::string missing = "Install: the path is missing or too long.";
  EXPECT_EQ(log.texts(),
            (std::vector<std::string>{
                missing, missing, "Install: Caught std::exception two\\x0alines, type: std::runtime_error",
                "Install: Caught std::exception unknown, type: unknown"}));
}

}  // namespace
}  // namespace zarn::rpc_server

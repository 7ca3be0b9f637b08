#include "fake_service.h"

#include <gtest/gtest.h>

#include "update/interface/update_interface.h"
#include "util/string_utils.h"

namespace zarn::testing {
namespace {

void take(const wchar_t* path) {
  FakeService::instance().path = StringUtils::utf16to8(path);
}

void setLocalAppDataPath(handle_t, const wchar_t* path) {
  take(path);
}

long checkBundle(handle_t, const wchar_t* path) {
  take(path);
  return FakeService::instance().status;
}

long install(handle_t, const wchar_t* path, long* installerExitCode) {
  take(path);
  *installerExitCode = FakeService::instance().installerExitCode;
  return FakeService::instance().status;
}

}  // namespace

FakeService& FakeService::instance() {
  static FakeService service;
  return service;
}

FakeService::FakeService() {
  static update_interface::ServerInterface served({setLocalAppDataPath, checkBundle, install});
  using update_interface::rpcText;
  EXPECT_EQ(RpcServerUseProtseqEpW(rpcText(update_interface::kProtocolSequence), 1,
                                   rpcText(update_interface::kEndpoint), nullptr),
            RPC_S_OK);
  EXPECT_EQ(RpcServerRegisterIf(served.handle(), nullptr, nullptr), RPC_S_OK);
  EXPECT_EQ(RpcServerListen(1, 1, TRUE), RPC_S_OK);
}

}  // namespace zarn::testing

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
  std::wstring sequence = update_interface::kProtocolSequence;
  std::wstring endpoint = update_interface::kEndpoint;
  EXPECT_EQ(RpcServerUseProtseqEpW(reinterpret_cast<RPC_WSTR>(sequence.data()), 1,
                                   reinterpret_cast<RPC_WSTR>(endpoint.data()), nullptr),
            RPC_S_OK);
  EXPECT_EQ(RpcServerRegisterIf(served.handle(), nullptr, nullptr), RPC_S_OK);
  EXPECT_EQ(RpcServerListen(1, 1, TRUE), RPC_S_OK);
}

}  // namespace zarn::testing

// The tables, octet by octet: callers that were built elsewhere rely on them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string/erase.hpp>

#include "update/interface/update_interface.h"

namespace zarn::update_interface {
namespace {

template <typename Table>
void expectOctets(const Table& table, const std::string& hexadecimal) {
  const auto octets = boost::algorithm::unhex(boost::algorithm::erase_all_copy(hexadecimal, " "));
  EXPECT_EQ(std::string(table.begin(), table.end()), octets);
}

TEST(WireTables, DescribeTheThreeProcedures) {
  const std::string path = " 0b01 0800 0400";
  const std::string extension = " 0a01 00000000 00000000";
  expectOctets(kProcedureFormat, "00 48 00000000 0000 1000 32000000 0000 0000 42 01" + extension + path +
                                     "00 48 00000000 0100 1800 32000000 0000 0800 46 02" + extension + path +
                                     "7000 1000 0800" + "00 48 00000000 0200 2000 32000000 0000 2400 46 03" +
                                     extension + path + "5021 1000 0800 7000 1800 0800" + "00");
  expectOctets(kTypeFormat, "0000 1108 255c 110c 085c 0000 0000 0000");
  EXPECT_THAT(kProcedureOffsets, ::testing::ElementsAre(0, 36, 78));
}

TEST(WireTables, NameTheInterface) {
  const ServerInterface server({});
  const auto* const client = static_cast<const RPC_CLIENT_INTERFACE*>(kClientStub.RpcInterfaceInformation);
  for (RPC_SYNTAX_IDENTIFIER id : {server.description().InterfaceId, client->InterfaceId}) {
    RPC_CSTR text = nullptr;
    EXPECT_EQ(UuidToStringA(&id.SyntaxGUID, &text), RPC_S_OK);
    EXPECT_STREQ(reinterpret_cast<const char*>(text), "631c7d9c-1797-42f9-8e96-367a9ee58887");
    RpcStringFreeA(&text);
    EXPECT_TRUE(id.SyntaxVersion.MajorVersion == 1 && id.SyntaxVersion.MinorVersion == 0);
  }
}

}  // namespace
}  // namespace zarn::update_interface

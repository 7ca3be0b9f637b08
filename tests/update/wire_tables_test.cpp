// The tables, octet by octet: callers that were built elsewhere rely on them.
#include <gmock/gmock.h>

#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string/erase.hpp>
#include <cstring>

#include "update/interface/update_interface.h"

namespace zarn::update_interface {
namespace {

TEST(WireTables, DescribeTheThreeProceduresAndNameTheInterface) {
  const auto is = [](const auto& table, const std::string& hexadecimal) {
    const auto octets = boost::algorithm::unhex(boost::algorithm::erase_all_copy(hexadecimal, " "));
    return std::string(table.begin(), table.end()) == octets;
  };
  const std::string path = " 0a01 00000000 00000000 0b01 0800 0400";  // after the extension
  EXPECT_TRUE(is(kProcedureFormat, "00 48 00000000 0000 1000 32000000 0000 0000 42 01" + path +
                                       "00 48 00000000 0100 1800 32000000 0000 0800 46 02" + path +
                                       "7000 1000 0800" +
                                       "00 48 00000000 0200 2000 32000000 0000 2400 46 03" + path +
                                       "5021 1000 0800 7000 1800 0800" + "00"));
  EXPECT_TRUE(is(kTypeFormat, "0000 1108 255c 110c 085c 0000 0000 0000"));
  EXPECT_THAT(kProcedureOffsets, ::testing::ElementsAre(0, 36, 78));
  const RPC_SYNTAX_IDENTIFIER wanted{
      {0x631c7d9c, 0x1797, 0x42f9, {0x8e, 0x96, 0x36, 0x7a, 0x9e, 0xe5, 0x88, 0x87}}, {1, 0}};
  const ServerInterface server({});
  const auto* const client = static_cast<const RPC_CLIENT_INTERFACE*>(kClientStub.RpcInterfaceInformation);
  for (const auto* id : {&server.description().InterfaceId, &client->InterfaceId})
    EXPECT_EQ(std::memcmp(id, &wanted, sizeof(wanted)), 0);
}

}  // namespace
}  // namespace zarn::update_interface

// The tables against a description of the interface field by field.
#include <gtest/gtest.h>

#include <vector>

#include "update/interface/update_interface.h"

namespace zarn::update_interface {
namespace {

class Bytes {
 public:
  Bytes& byte(unsigned value) {
    bytes_.push_back(static_cast<unsigned char>(value));
    return *this;
  }
  Bytes& word(unsigned value) { return byte(value & 0xff).byte(value >> 8); }
  Bytes& zeros(int count) {
    for (; count > 0; --count) byte(0);
    return *this;
  }
  [[nodiscard]] const std::vector<unsigned char>& all() const { return bytes_; }

 private:
  std::vector<unsigned char> bytes_;
};

struct Parameter {
  unsigned flags;
  unsigned type;  ///< offset into the type format, or a base type and a pad byte
};

struct ProcedureFields {
  unsigned stackSize;
  unsigned serverBuffer;
  unsigned interpreterFlags;
  std::vector<Parameter> parameters;
};

TEST(WireTables, DescribeTheThreeProcedures) {
  const Parameter path = {0x010b, 4};
  const Parameter exitCode = {0x2150, 0x08};
  const Parameter result = {0x0070, 0x08};
  const std::vector<ProcedureFields> procedures = {
      {16, 0, 0x42, {path}}, {24, 8, 0x46, {path, result}}, {32, 36, 0x46, {path, exitCode, result}}};
  Bytes expected;
  std::vector<unsigned short> offsets;
  for (unsigned number = 0; number < procedures.size(); ++number) {
    const ProcedureFields& fields = procedures[number];
    offsets.push_back(static_cast<unsigned short>(expected.all().size()));
    expected.byte(0).byte(0x48).zeros(4).word(number).word(fields.stackSize);
    expected.byte(0x32).byte(0).word(0);
    expected.word(0).word(fields.serverBuffer).byte(fields.interpreterFlags);
    expected.byte(static_cast<unsigned>(fields.parameters.size())).byte(10).byte(0x01).zeros(8);
    unsigned stackOffset = 8;
    for (const Parameter& parameter : fields.parameters) {
      expected.word(parameter.flags).word(stackOffset).word(parameter.type);
      stackOffset += 8;
    }
  }
  EXPECT_EQ(expected.all().size(), 126U);
  expected.byte(0);
  EXPECT_EQ(std::vector<unsigned char>(kProcedureFormat.begin(), kProcedureFormat.end()), expected.all());
  EXPECT_EQ(std::vector<unsigned short>(kProcedureOffsets.begin(), kProcedureOffsets.end()), offsets);
  EXPECT_EQ(offsets, (std::vector<unsigned short>{0, 36, 78}));

  const std::vector<unsigned char> types = {0,    0,    0x11, 0x08, 0x25, 0x5c, 0x11, 0x0c,
                                            0x08, 0x5c, 0,    0,    0,    0,    0,    0};
  EXPECT_EQ(std::vector<unsigned char>(kTypeFormat.begin(), kTypeFormat.end()), types);
}

TEST(WireTables, NameTheInterface) {
  const ServerInterface server({});
  const RPC_SERVER_INTERFACE& served = server.description();
  const auto* const called = static_cast<const RPC_CLIENT_INTERFACE*>(kClientStub.RpcInterfaceInformation);
  const auto isNamed = [](RPC_SYNTAX_IDENTIFIER id, char* text, unsigned version) {
    GUID expected{};
    EXPECT_EQ(UuidFromStringA(reinterpret_cast<RPC_CSTR>(text), &expected), RPC_S_OK);
    return IsEqualGUID(id.SyntaxGUID, expected) && id.SyntaxVersion.MajorVersion == version &&
           id.SyntaxVersion.MinorVersion == 0;
  };
  char name[] = "631c7d9c-1797-42f9-8e96-367a9ee58887";
  char ndr[] = "8a885d04-1ceb-11c9-9fe8-08002b104860";
  EXPECT_TRUE(isNamed(served.InterfaceId, name, 1) && isNamed(called->InterfaceId, name, 1));
  EXPECT_TRUE(isNamed(served.TransferSyntax, ndr, 2) && isNamed(called->TransferSyntax, ndr, 2));
}

}  // namespace
}  // namespace zarn::update_interface

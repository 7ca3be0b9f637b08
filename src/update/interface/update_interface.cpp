#include "update/interface/update_interface.h"

#include <cstdlib>

namespace zarn::update_interface {
namespace {

// The RPC runtime owns what it unmarshals, by these two.
// NOLINTBEGIN(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
void* __RPC_USER allocate(std::size_t size) {
  return std::malloc(size);
}
void __RPC_USER release(void* memory) {
  std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)

constexpr RPC_SYNTAX_IDENTIFIER kInterfaceId = {
    {0x631c7d9c, 0x1797, 0x42f9, {0x8e, 0x96, 0x36, 0x7a, 0x9e, 0xe5, 0x88, 0x87}}, {1, 0}};
constexpr RPC_SYNTAX_IDENTIFIER kNdrSyntax = {
    {0x8a885d04, 0x1ceb, 0x11c9, {0x9f, 0xe8, 0x08, 0x00, 0x2b, 0x10, 0x48, 0x60}}, {2, 0}};

// NDR 5.2: the version whose interpreter reads the tables below.
constexpr unsigned long kNdrVersion = 0x50002;

/// Routines of differing signatures share one table; the interpreter calls each
/// with what its procedure format says.
template <typename Routine>
SERVER_ROUTINE asServerRoutine(Routine routine) noexcept {
  return reinterpret_cast<SERVER_ROUTINE>(reinterpret_cast<void (*)()>(routine));
}

}  // namespace

// clang-format off
constexpr std::array<unsigned char, kProcedureFormatSize + 1> kProcedureFormat = {
    // Procedure 0: void SetLocalAppDataPath([in, string] path)
    0x00,                    // explicit handle
    0x48,                    // Oi flags
    0x00, 0x00, 0x00, 0x00,  // RPC flags
    0x00, 0x00,              // procedure number
    0x10, 0x00,              // stack size 16
    0x32, 0x00, 0x00, 0x00,  // binding primitive at stack offset 0
    0x00, 0x00,              // client buffer
    0x00, 0x00,              // server buffer
    0x42,                    // client must size, has extensions
    0x01,                    // parameters
    0x0a, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // extension
    0x0b, 0x01, 0x08, 0x00, 0x04, 0x00,  // path: must size, must free, in, simple reference

    // Procedure 1: long CheckBundle([in, string] path)
    0x00,
    0x48,
    0x00, 0x00, 0x00, 0x00,
    0x01, 0x00,
    0x18, 0x00,              // stack size 24
    0x32, 0x00, 0x00, 0x00,
    0x00, 0x00,
    0x08, 0x00,              // server buffer 8
    0x46,                    // as above, and has a return value
    0x02,
    0x0a, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x0b, 0x01, 0x08, 0x00, 0x04, 0x00,
    0x70, 0x00, 0x10, 0x00, 0x08, 0x00,  // result: out, return, base type long

    // Procedure 2: long Install([in, string] path, [out] long* exit code)
    0x00,
    0x48,
    0x00, 0x00, 0x00, 0x00,
    0x02, 0x00,
    0x20, 0x00,              // stack size 32
    0x32, 0x00, 0x00, 0x00,
    0x00, 0x00,
    0x24, 0x00,              // server buffer 36
    0x46,
    0x03,
    0x0a, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x0b, 0x01, 0x08, 0x00, 0x04, 0x00,
    0x50, 0x21, 0x10, 0x00, 0x08, 0x00,  // exit code: out, base type, simple reference, 8 bytes on the stack
    0x70, 0x00, 0x18, 0x00, 0x08, 0x00,

    0x00,
};

constexpr std::array<unsigned char, kTypeFormatSize> kTypeFormat = {
    0x00, 0x00,
    0x11, 0x08, 0x25, 0x5c,  // offset 2: simple reference to a conformant wide string
    0x11, 0x0c, 0x08, 0x5c,  // offset 6: simple reference to a long, on the stack
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
};
// clang-format on

constexpr std::array<unsigned short, kProcedureCount> kProcedureOffsets = {0, 36, 78};

static_assert(kProcedureFormat[kProcedureOffsets[1] + 6] == 1 &&
                  kProcedureFormat[kProcedureOffsets[2] + 6] == 2,
              "each offset must be where its procedure begins");
static_assert(sizeof(long) == 4, "a wire long has 32 bits");

namespace {

constexpr RPC_CLIENT_INTERFACE kClientInterface = {
    sizeof(RPC_CLIENT_INTERFACE), kInterfaceId, kNdrSyntax, nullptr, 0, nullptr, 0, nullptr, 0};

constexpr MIDL_STUB_DESC stubDescription(const void* description) noexcept {
  MIDL_STUB_DESC stub{};
  // The runtime only reads it; the member lacks the const.
  stub.RpcInterfaceInformation = const_cast<void*>(description);
  stub.pfnAllocate = allocate;
  stub.pfnFree = release;
  stub.pFormatTypes = kTypeFormat.data();
  stub.fCheckBounds = 1;
  stub.Version = kNdrVersion;
  return stub;
}

}  // namespace

constinit const MIDL_STUB_DESC kClientStub = stubDescription(&kClientInterface);

PFORMAT_STRING procedureFormat(Procedure procedure) noexcept {
  return &kProcedureFormat[kProcedureOffsets[static_cast<std::size_t>(procedure)]];
}

ServerInterface::ServerInterface(const ServerRoutines& routines) noexcept
    : routines_{asServerRoutine(routines.setLocalAppDataPath), asServerRoutine(routines.checkBundle),
                asServerRoutine(routines.install)},
      dispatch_{NdrServerCall2, NdrServerCall2, NdrServerCall2, nullptr},
      dispatchTable_{kProcedureCount, dispatch_.data(), 0},
      stub_(stubDescription(&interface_)),
      server_{&stub_, routines_.data(), kProcedureFormat.data(), kProcedureOffsets.data(), nullptr, nullptr,
              0,      nullptr},
      interface_{sizeof(RPC_SERVER_INTERFACE),
                 kInterfaceId,
                 kNdrSyntax,
                 &dispatchTable_,
                 0,
                 nullptr,
                 nullptr,
                 &server_,
                 0} {}

}  // namespace zarn::update_interface

// The message table of the built program, as viewers of the event log read it.
#include <windows.h>

#include "support/test.h"
#include "util/events.h"

namespace zarn {
namespace {

/// Every id for which the table has a message.
std::set<std::uint32_t> idsIn(HMODULE module) {
  std::set<std::uint32_t> ids;
  const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(11));
  if (found == nullptr) return ids;
  const auto* const table =
      static_cast<const MESSAGE_RESOURCE_DATA*>(LockResource(LoadResource(module, found)));
  for (DWORD i = 0; i < table->NumberOfBlocks; ++i) {
    for (DWORD id = table->Blocks[i].LowId; id <= table->Blocks[i].HighId; ++id) ids.insert(id);
  }
  return ids;
}

TEST(MessageTable, HasAMessageWithTheRightInsertionsForEachEventAndNoOther) {
  const std::unique_ptr<HINSTANCE__, decltype(&FreeLibrary)> module(
      LoadLibraryExW(L"" ZARN_PROGRAM, nullptr, LOAD_LIBRARY_AS_DATAFILE), &FreeLibrary);
  ASSERT_TRUE(module) << GetLastError();
  std::set<std::uint32_t> wanted;
  std::array<std::wstring, 30> marks;
  std::array<DWORD_PTR, 30> insertions{};
  for (std::size_t i = 0; i < marks.size(); ++i) {
    marks[i] = L"<" + std::to_wstring(i + 1) + L">";
    insertions[i] = reinterpret_cast<DWORD_PTR>(marks[i].c_str());
  }
  for (const EventFacts& facts : kEvents) {
    wanted.insert(messageId(facts));
    std::wstring text(4000, L'\0');
    text.resize(FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, module.get(),
                               messageId(facts), 0, text.data(), static_cast<DWORD>(text.size()),
                               reinterpret_cast<va_list*>(insertions.data())));
    EXPECT_FALSE(text.empty()) << messageId(facts) << ": " << GetLastError();
    for (std::size_t i = 0; i < marks.size(); ++i) {
      EXPECT_EQ(text.find(marks[i]) != std::wstring::npos, i < insertionCount(facts))
          << static_cast<unsigned>(facts.id) << ", insertion " << i + 1;
    }
  }
  EXPECT_EQ(idsIn(module.get()), wanted);
}

}  // namespace
}  // namespace zarn

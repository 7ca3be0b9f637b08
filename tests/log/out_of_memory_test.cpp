// Memory that runs out on a thread that logs. Replaces the program's operator new.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "log/log_queue.h"
#include "log/probe_log.h"

namespace zarn::testing {
namespace {

/// While it lives, its thread gets no memory from operator new.
class NoMemory {
 public:
  NoMemory() { fails = true; }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
  ~NoMemory() { fails = false; }

  inline static thread_local bool fails = false;
};

}  // namespace
}  // namespace zarn::testing

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = zarn::testing::NoMemory::fails ? nullptr : std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace zarn::testing {
namespace {

using ::testing::ElementsAre;

const std::string kLost = "Log lines that were lost because the queue had no room for them: ";

TEST(OutOfMemory, CostsAQueueTheLineAndNothingElse) {
  LogQueue queue;
  const std::string text(1000, 'l');
  queue.push({}, {}, "before");
  {
    const NoMemory gone;
    queue.push({}, {}, text);
    queue.push({}, {}, "short");  // there is none for its slot
  }
  queue.push({}, {}, "after");
  LogQueue::Batch batch;
  ASSERT_TRUE(queue.take(batch));
  Lines messages;
  for (const LogItem& item : batch.items()) messages.push_back(item.message);
  EXPECT_THAT(messages, ElementsAre("before", kLost + "2", "after"));
}

}  // namespace
}  // namespace zarn::testing

// Time-outs while the system's resolver does not answer. Stands in for it in the whole
// test program; that libcurl really asks it is part of the test.
#include <dlfcn.h>
#include <netdb.h>

#include "http/http_client.h"
#include "support/test.h"

using namespace std::chrono_literals;

static constexpr char kUnanswered[] = "unanswered.zarn.example";
static std::atomic<int> unanswered{0};
static std::atomic<bool> isAnswering{false};

/// Before the C library's, which it calls for every other name.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
  using Resolver = int(const char*, const char*, const addrinfo*, addrinfo**);
  static auto* const next = reinterpret_cast<Resolver*>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if (name == nullptr || std::strcmp(name, kUnanswered) != 0) return next(name, service, hints, result);
  ++unanswered;
  // Answers in the end, so that a client that waits for it fails instead of hanging.
  for (int i = 0; i < 600 && !isAnswering; ++i) std::this_thread::sleep_for(10ms);
  --unanswered;
  return EAI_AGAIN;
}

namespace zarn {

TEST(HttpTimeouts, HoldWhileANameIsResolved) {
  const testing::RecordingLog log;
  HttpClientRunner runner;
  for (const std::uint32_t whole : {1U, 60U}) {
    const auto ctx = HttpContext::create("https://" + std::string(kUnanswered) + "/", "GET");
    ctx->timeout = whole;
    ctx->connectTimeout = 61 - whole;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(HttpClient::submit(ctx, runner)->wait()->httpCode, 408);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_GT(unanswered, 0);
  }
  isAnswering = true;
  for (int i = 0; i < 300 && unanswered != 0; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(unanswered, 0);
  std::this_thread::sleep_for(100ms);  // libcurl's threads end behind it
}

}  // namespace zarn

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <exception>
#include <memory>
#include <vector>

#include "update/file_digest.h"

namespace zarn {
namespace {

constexpr DWORD kBlockBytes = 1U << 20;

struct DigestFreer {
  void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

std::string digestOf(HANDLE file) {
  const std::unique_ptr<EVP_MD_CTX, DigestFreer> context(EVP_MD_CTX_new());
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) return {};
  std::vector<unsigned char> block(kBlockBytes);
  for (DWORD read = 1; read != 0;) {
    if (ReadFile(file, block.data(), kBlockBytes, &read, nullptr) == 0 ||
        EVP_DigestUpdate(context.get(), block.data(), read) != 1) {
      return {};
    }
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_DigestFinal_ex(context.get(), digest.data(), &size) != 1) return {};
  return fmt::format("{:02x}", fmt::join(digest.begin(), digest.begin() + size, ""));
}

}  // namespace

BackgroundDigest::BackgroundDigest(HANDLE file) noexcept {
  try {
    thread_ = std::thread([this, file] {
      try {
        digest_ = digestOf(file);
      } catch (const std::exception&) {  // out of memory: there is no digest
        digest_.clear();
      }
      OPENSSL_thread_stop();  // which would not learn by itself that the thread ends
    });
  } catch (const std::exception&) {
    digest_.clear();
  }
}

const std::string& BackgroundDigest::finish() noexcept {
  if (thread_.joinable()) thread_.join();
  return digest_;
}

}  // namespace zarn

#include "client/tool/machine/authorities.h"

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <ctime>
#include <memory>
#include <optional>
#include <utility>

#include "os/error_text.h"
#include "os/files.h"
#include "os/registry.h"
#include "os/text.h"
#include "util/file_utils.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr std::int64_t kMostAuthoritiesBytes = std::int64_t{8} << 20;
constexpr std::size_t kMostChoiceBytes = std::size_t{64} << 10;
constexpr int kMostSubjectLetters = 256;

struct InfoListFreer {
  void operator()(STACK_OF(X509_INFO) * list) const noexcept { sk_X509_INFO_pop_free(list, X509_INFO_free); }
};
struct BioFreer {
  void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};
struct Asn1TimeFreer {
  void operator()(ASN1_TIME* time) const noexcept { ASN1_TIME_free(time); }
};

/// Seconds from the epoch until the certificate ends; nothing when its time is none.
std::optional<std::int64_t> endOf(const X509& certificate) {
  const std::unique_ptr<ASN1_TIME, Asn1TimeFreer> epoch(ASN1_TIME_set(nullptr, 0));
  int days = 0;
  int seconds = 0;
  if (!epoch || ASN1_TIME_diff(&days, &seconds, epoch.get(), X509_get0_notAfter(&certificate)) == 0)
    return std::nullopt;
  return std::int64_t{days} * 24 * 60 * 60 + seconds;
}

std::string subjectOf(const X509& certificate) {
  std::string text(kMostSubjectLetters, '\0');
  X509_NAME_oneline(X509_get_subject_name(&certificate), text.data(), kMostSubjectLetters);
  text.resize(text.find('\0'));  // which is there: the routine ends what it writes with one
  return text;
}

void count(AuthorityList& list, const X509& certificate, std::int64_t now) {
  ++list.certificates;
  const auto end = endOf(certificate);
  if (!end || *end < now) {
    ++list.expired;
  } else if (!list.nextExpiry || *end < *list.nextExpiry) {
    list.nextExpiry = end;
    list.nextSubject = subjectOf(certificate);
  }
}

/// What is wrong with a list, a clause; empty when nothing is.
std::string problemOfText(const std::string& pem, AuthorityList& list, std::int64_t now) {
  const std::unique_ptr<BIO, BioFreer> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  // Without a routine of its own OpenSSL would ask the terminal for a block's password.
  const auto noPassword = [](char*, int, int, void*) { return 0; };
  const std::unique_ptr<STACK_OF(X509_INFO), InfoListFreer> blocks(
      bio ? PEM_X509_INFO_read_bio(bio.get(), nullptr, noPassword, nullptr) : nullptr);
  if (!blocks) return "a damaged block";
  for (int i = 0; i < sk_X509_INFO_num(blocks.get()); ++i) {
    const X509* const certificate = sk_X509_INFO_value(blocks.get(), i)->x509;
    if (certificate != nullptr) count(list, *certificate, now);
  }
  return list.certificates == 0 ? "no certificate" : "";
}

std::string problemOfFile(AuthorityList& list, std::int64_t now) {
  const auto file = os::openPlainFile(FileUtils::toPath(list.path));
  if (!file) return systemErrorPhrase(file.error());
  if (!*file) return "no plain file";
  const std::int64_t size = os::seekToEnd(**file);
  if (size < 0 || size > kMostAuthoritiesBytes) return "more than 8 MiB";
  std::string pem(static_cast<std::size_t>(size), '\0');
  std::rewind(file->get());
  if (std::fread(pem.data(), 1, pem.size(), file->get()) != pem.size()) return "not readable to its end";
  return problemOfText(pem, list, now);
}

}  // namespace

bool isListChosen() {
  const auto key = os::openRegistryKey(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, KEY_QUERY_VALUE);
  if (!key) return !key.error().isNotFound();
  const auto data = os::readRegistryValue(key->get(), names::kAuthoritiesValue.wide, kMostChoiceBytes);
  if (!data) return !data.error().isNotFound();
  const std::string text = StringUtils::utf16to8(data->text().c_str());
  return data->type != REG_SZ || (!text.empty() && !os::equalsIgnoringCase(text, "default"));
}

AuthorityList readAuthorities(const std::string& resources, bool isChosen, std::int64_t now) {
  const std::string chosen = FileUtils::join(resources, names::kChosenAuthorities.narrow);
  AuthorityList list;
  list.path = isChosen ? chosen : FileUtils::certificateFileIn(resources);
  list.isChosen = list.path == chosen;
  list.problem = problemOfFile(list, now);
  return list;
}

}  // namespace zarn::tool

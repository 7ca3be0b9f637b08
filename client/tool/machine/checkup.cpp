#include "client/tool/machine/checkup.h"

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <optional>

#include "client/tool/machine/environment.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/service.h"
#include "client/tool/machine/settings.h"
#include "client/tool/report/text.h"
#include "http/libcurl.h"
#include "log/network_log.h"
#include "os/error_text.h"
#include "os/process.h"
#include "os/registry.h"
#include "os/text.h"
#include "trust/account_service_host.h"
#include "util/file_utils.h"
#include "util/host_and_port.h"
#include "util/path_judge.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr std::int64_t kMostAuthoritiesBytes = std::int64_t{8} << 20;
constexpr std::size_t kMostChoiceBytes = std::size_t{64} << 10;

// ---- The proxy -----------------------------------------------------------------------

std::optional<std::string> partOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, 0) != CURLUE_OK) return std::nullopt;
  const CurlText owner(text);
  return std::string(text);
}

/// The address as libcurl takes it apart, without its sign-in; nothing when it is none.
std::optional<std::string> proxyAddress(const std::string& text) {
  const Url url(curl_url());
  constexpr unsigned flags = CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME;
  if (!url || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), flags) != CURLUE_OK) return std::nullopt;
  const auto scheme = partOf(url.get(), CURLUPART_SCHEME);
  const auto host = partOf(url.get(), CURLUPART_HOST);
  const bool hasSignIn = partOf(url.get(), CURLUPART_USER) || partOf(url.get(), CURLUPART_PASSWORD);
  // A sign-in with a slash in it ends the host too early: what is taken for the port then
  // is part of a password.
  const bool isTornApart = text.find('@') != std::string::npos && !hasSignIn;
  if (!scheme || !isProxyScheme(*scheme) || !host || host->empty() || isTornApart) return std::nullopt;
  const auto port = partOf(url.get(), CURLUPART_PORT);
  return *scheme + "://" + *host + (port ? ":" + *port : "") + (hasSignIn ? ", with a sign-in" : "");
}

/// As libcurl looks for that of an https address; the names' case does not matter here.
Finding checkProxyInForce(const std::vector<Setting>& settings) {
  for (const char* const variable : {names::kHttpsProxyVariable.narrow, names::kAllProxyVariable.narrow}) {
    const std::string text = environmentVariable(variable).value_or("");
    const std::string place = placeOf(names::kProxyValue.narrow, settings);
    if (!text.empty()) return checkProxy(place == names::kHttpsProxyVariable.narrow ? variable : place, text);
  }
  return checkProxy({}, {});
}

// ---- The authorities ------------------------------------------------------------------

struct InfoListFreer {
  void operator()(STACK_OF(X509_INFO) * list) const noexcept { sk_X509_INFO_pop_free(list, X509_INFO_free); }
};
struct BioFreer {
  void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};

/// How many certificates a list has; nothing when a block of it is damaged. Reads it as
/// OpenSSL does for the service's requests.
std::optional<int> countCertificates(const std::string& pem) {
  const std::unique_ptr<BIO, BioFreer> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  // Without a routine of its own OpenSSL would ask the terminal for a block's password.
  const auto noPassword = [](char*, int, int, void*) { return 0; };
  const std::unique_ptr<STACK_OF(X509_INFO), InfoListFreer> list(
      bio ? PEM_X509_INFO_read_bio(bio.get(), nullptr, noPassword, nullptr) : nullptr);
  if (!list) return std::nullopt;
  int count = 0;
  for (int i = 0; i < sk_X509_INFO_num(list.get()); ++i)
    count += sk_X509_INFO_value(list.get(), i)->x509 != nullptr ? 1 : 0;
  return count;
}

/// What is wrong with a list, a clause; empty when nothing is. `count` is set then.
std::string problemOfList(const std::string& path, int& count) {
  const auto file = os::openPlainFile(FileUtils::toPath(path));
  if (!file) return systemErrorPhrase(file.error());
  if (!*file) return "no plain file";
  const std::int64_t size = os::seekToEnd(**file);
  if (size < 0 || size > kMostAuthoritiesBytes) return "more than 8 MiB";
  std::string pem(static_cast<std::size_t>(size), '\0');
  std::rewind(file->get());
  if (std::fread(pem.data(), 1, pem.size(), file->get()) != pem.size()) return "not readable to its end";
  const auto certificates = countCertificates(pem);
  if (!certificates) return "a damaged block";
  if (*certificates == 0) return "no certificate";
  count = *certificates;
  return {};
}

/// Whether an administrator chose a list when the service was set up. What cannot be read
/// counts as chosen: the shipped list may trust more.
bool isListChosen() {
  const auto key = os::openRegistryKey(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, KEY_QUERY_VALUE);
  if (!key) return !key.error().isNotFound();
  const auto data = os::readRegistryValue(key->get(), names::kAuthoritiesValue.wide, kMostChoiceBytes);
  if (!data) return !data.error().isNotFound();
  const std::string text = StringUtils::utf16to8(data->text().c_str());
  return data->type != REG_SZ || (!text.empty() && !os::equalsIgnoringCase(text, "default"));
}

}  // namespace

Finding checkAccountService(const std::string& host, const std::string& place) {
  const bool ok = isHostWithOptionalPort(host);
  return {"account service", ok, withoutCredentials(host),
          ok ? "" : "Set " + place + " to a host or host:port, or to nothing for the one built in"};
}

Finding checkProxy(const std::string& place, const std::string& text) {
  if (text.empty()) return {"proxy", true, "none", ""};
  const auto address = proxyAddress(text);
  if (address) return {"proxy", true, place + ": " + *address, ""};
  // The text is not shown: where its password stands cannot be told.
  return {
      "proxy", false, place + ": no address of a proxy",
      "Set it to http://HOST:PORT, or with https, socks4, socks4a, socks5 or socks5h in front; signs such as "
      "/ and @ in a password are written with %"};
}

// Only a warning: without the collector the service does all that it is for.
Finding checkCollector(const std::optional<std::string>& collector, const std::optional<std::string>& minutes,
                       const std::vector<Setting>& settings) {
  if (!collector && !minutes) return {"syslog collector", true, "none", ""};
  const auto place = parseCollector(collector.value_or(""));
  const auto duration = parseCollectorMinutes(minutes.value_or(""));
  const std::string found = collector.value_or("") + " for " + minutes.value_or("") + " minutes";
  std::string advice;
  if (!place) {
    advice = "Set " + placeOf(names::kSyslogCollectorValue.narrow, settings) + " to host:port";
  } else if (!duration) {
    advice = "Set " + placeOf(names::kSyslogMinutesValue.narrow, settings) + " to a positive number";
  }
  return {"syslog collector", true, found, advice.empty() ? "" : advice + "; no lines are sent"};
}

Finding checkAuthorities(const std::string& resources, bool isChosen) {
  const std::string chosen = FileUtils::join(resources, names::kChosenAuthorities.narrow);
  const std::string path = isChosen ? chosen : FileUtils::certificateFileIn(resources);
  int count = 0;
  const std::string problem = problemOfList(path, count);
  if (problem.empty())
    return {"authorities", true, path + ": " + std::to_string(count) + " certificate(s)", ""};
  const char* advice =
      path == chosen ? "Choose a list again: a PEM file with certificates; nothing is approved without it"
                     : "Install the package again: it puts the shipped list back";
  return {"authorities", false, path + ": " + problem, advice};
}

Finding checkTempFolder(const std::string& folder) {
  if (folder.empty() || judgePath(folder) != PathKind::LocalFolder) {
    return {"temp folder", false, folder.empty() ? "none" : folder,
            "Set TMP in the service's own environment to a folder on a drive of this machine"};
  }
  const auto path = FileUtils::toPath(folder);
  if (!mayBeFolder(folder)) {
    const bool canBeMade = !FileUtils::exists(folder) && mayBeFolder(FileUtils::toUtf8(path.parent_path()));
    return {"temp folder", canBeMade, folder + ": not there",
            "Make the folder, for the service and administrators alone; without it another one is used"};
  }
  if (folder.find(' ') == std::string::npos) return {"temp folder", true, folder, ""};
  return {"temp folder", true, folder,
          "Use a path without blanks: it is the first part of the installers' command line, which has no "
          "quotation "
          "marks"};
}

std::vector<Finding> checkConfiguration() {
  adoptServiceEnvironment();
  const std::vector<Setting> settings = serviceSettings();
  return {
      checkAccountService(accountServiceHost(), placeOf(names::kAccountServiceHostValue.narrow, settings)),
      checkProxyInForce(settings),
      checkCollector(environmentVariable(names::kSyslogCollectorVariable.narrow),
                     environmentVariable(names::kSyslogMinutesVariable.narrow), settings),
      checkAuthorities(FileUtils::resourcesDirectory(), isListChosen()),
      checkTempFolder(serviceTempFolder())};
}

}  // namespace zarn::tool

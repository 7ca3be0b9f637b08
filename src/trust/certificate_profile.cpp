#include "trust/certificate_profile.h"

#include <exception>
#include <utility>

#include "http/http_client.h"
#include "trust/account_service_host.h"
#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {
namespace {

constexpr char kPath[] = "/api/zmscert/profile";

std::shared_ptr<HttpContext> transferAndWait(std::shared_ptr<HttpContext> context) {
  return HttpClient::submit(std::move(context))->wait();
}

}  // namespace

CertificateProfileClient::CertificateProfileClient(std::string host, std::uint32_t timeoutSeconds,
                                                   std::string authorities)
    : host_(std::move(host)),
      timeoutSeconds_(timeoutSeconds),
      authorities_(std::move(authorities)),
      transfer_(transferAndWait) {}

CertificateProfileClient::CertificateProfileClient(std::string host, Transfer transfer)
    : host_(std::move(host)), transfer_(std::move(transfer)) {}

std::set<std::string> CertificateProfileClient::fetch() const {
  if (!isHostWithOptionalPort(host_)) {
    logLine(LogLevel::Error, "Error: Could not receive json data, invalid account service host: %s",
            printable(host_));
    return {};
  }
  const auto response = receive();
  if (!response) return {};
  // Unsigned, so that codes below 200 are far above 99.
  if (static_cast<std::uint32_t>(response->httpCode) - 200U > 99U) {
    logLine(LogLevel::Error, "Error: Could not receive json data, http code:  %d", response->httpCode);
    return {};
  }
  auto digests = parseCertificateProfile(response->body);
  if (response->result != CURLE_OK && !digests.empty()) {
    // What broke off may still read like a whole document.
    logLine(LogLevel::Error, "Error: Could not receive json data, transfer broke off: %s",
            curl_easy_strerror(response->result));
    return {};
  }
  return digests;
}

/// Null, and the reason logged, when the transfer throws.
std::shared_ptr<HttpContext> CertificateProfileClient::receive() const {
  try {
    auto context = HttpContext::create("https://" + host_ + kPath, "GET");
    context->timeout = timeoutSeconds_;
    context->followRedirects = true;
    context->maxDownloadSize = kMaxBodyBytes;
    context->cacert = authorities_;
    return transfer_(std::move(context));
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "Error: Could not receive json data, exception: %s, type: %s",
              printable(error.what()), typeName(error));
    });
  } catch (...) {
    quietly([] {
      logLine(LogLevel::Error, "Error: Could not receive json data, exception: %s, type: %s", "unknown",
              "unknown");
    });
  }
  return nullptr;
}

std::set<std::string> FetchCertificateProfile() {
  return CertificateProfileClient(accountServiceHost()).fetch();
}

}  // namespace zarn

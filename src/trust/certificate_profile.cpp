#include "trust/certificate_profile.h"

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "http/http_client.h"
#include "trust/account_service_host.h"
#include "util/events.h"
#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {

// Named for the log line that shows the type.
struct ProfileNestingError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
struct ProfileSizeError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

namespace {

constexpr char kPath[] = "/api/zmscert/profile";

// The request's own time limit also bounds this wait.
std::shared_ptr<HttpContext> transferAndWait(std::shared_ptr<HttpContext> context) {
  return HttpClient::submit(std::move(context))->wait();
}

/// The JSON reader recurses at every bracket, so deep nesting would exhaust the
/// stack and end the process before it could be refused; and it gives each value
/// some 300 bytes of memory, however short it is. Brackets and commas inside strings
/// do not count. Up to the first error of syntax, where the reader stops, this
/// sees the same strings as the reader does.
void requireModestSize(const std::string& body) {
  int depth = 0;
  int values = 1;
  bool inString = false;
  for (std::size_t i = 0; i < body.size(); ++i) {
    const char c = body[i];
    if (inString) {
      if (c == '\\') ++i;  // whatever is escaped does not end the string
      if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxProfileNesting) throw ProfileNestingError("nested too deeply");
    } else if (c == ']' || c == '}') {
      --depth;
    }
    if (!inString && (c == ',' || c == '[' || c == '{') && ++values > kMaxProfileValues)
      throw ProfileSizeError("too many values");
  }
}

}  // namespace

std::optional<ApprovedDigests> parseCertificateProfile(const std::string& body) {
  try {
    requireModestSize(body);
    std::istringstream stream(body);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(stream, tree);
    // The keys do not matter: a list and an object with values are read alike.
    ApprovedDigests digests;
    for (const auto& [key, child] : tree.get_child("certs")) digests.insert(child.data());
    return digests;
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "Error: Could not read json data, exception: %s, type: %s",
              printable(error.what()), typeName(error));
    });
    return std::nullopt;
  }
}

CertificateProfileClient::CertificateProfileClient(std::string host, std::uint32_t timeoutSeconds,
                                                   std::string authorities)
    : host_(std::move(host)),
      timeoutSeconds_(timeoutSeconds),
      authorities_(std::move(authorities)),
      transfer_(transferAndWait) {}

CertificateProfileClient::CertificateProfileClient(std::string host, Transfer transfer)
    : host_(std::move(host)), transfer_(std::move(transfer)) {}

ProfileAnswer CertificateProfileClient::fetch() const {
  if (!isHostWithOptionalPort(host_)) {
    logLine(LogLevel::Error, "Error: Could not receive json data, invalid account service host: %s",
            printable(host_));
    return notHad("its name is no host");
  }
  const Response received = receive();
  if (!received) return tl::unexpected(received.error());
  const HttpContext* const response = received->get();
  // Unsigned, so that codes below 200 are far above 99.
  if (static_cast<std::uint32_t>(response->httpCode) - 200U > 99U) {
    logLine(LogLevel::Error, "Error: Could not receive json data, http code:  %d", response->httpCode);
    if (response->result != CURLE_OK) return notHad(curl_easy_strerror(response->result));
    reportNotHad("HTTP status " + std::to_string(response->httpCode));
    return tl::unexpected(ProfileNotHad{"HTTP " + std::to_string(response->httpCode)});
  }
  auto digests = parseCertificateProfile(response->body);
  if (!digests) return notHad("its answer is no list");
  if (response->result != CURLE_OK) {
    // What broke off may still read like a whole document. An empty list has no line, since
    // it approves nobody either way.
    if (!digests->empty())
      logLine(LogLevel::Error, "Error: Could not receive json data, transfer broke off: %s",
              curl_easy_strerror(response->result));
    return notHad(curl_easy_strerror(response->result));
  }
  return std::move(*digests);
}

void CertificateProfileClient::reportNotHad(std::string_view reason) const noexcept {
  // What is no host may be an address with a password.
  reportEvent<EventId::ApprovalListNotHad>(isHostWithOptionalPort(host_) ? host_ : std::string_view(),
                                           reason);
}

tl::unexpected<ProfileNotHad> CertificateProfileClient::notHad(std::string_view reason) const {
  reportNotHad(reason);
  return tl::unexpected(ProfileNotHad{std::string(reason)});
}

/// A transfer that throws is logged, and is the reason.
CertificateProfileClient::Response CertificateProfileClient::receive() const {
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
    return notHad(error.what());
  } catch (...) {
    quietly([] {
      logLine(LogLevel::Error, "Error: Could not receive json data, exception: %s, type: %s", "unknown",
              "unknown");
    });
    return notHad("an unknown exception");
  }
}

ProfileAnswer FetchCertificateProfile() {
  return CertificateProfileClient(accountServiceHost()).fetch();
}

}  // namespace zarn

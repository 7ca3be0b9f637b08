// The checks of `doctor` on the way to the account service.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <memory>
#include <utility>

#include "client/tool/machine/checkup.h"
#include "http/http_client.h"
#include "http/http_options.h"
#include "os/clock.h"
#include "os/error_text.h"
#include "os/text.h"
#include "trust/certificate_profile.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr std::size_t kMostAddresses = 4;

struct AddressFreer {
  void operator()(ADDRINFOW* list) const noexcept { FreeAddrInfoW(list); }
};

std::string numericAddress(const ADDRINFOW& found) {
  std::wstring text(NI_MAXHOST, L'\0');
  if (GetNameInfoW(found.ai_addr, static_cast<socklen_t>(found.ai_addrlen), text.data(),
                   static_cast<DWORD>(text.size()), nullptr, 0, NI_NUMERICHOST) != 0) {
    return "an address";
  }
  return StringUtils::utf16to8(text.c_str());
}

/// Waits for the system's resolver, which libcurl asks, too.
LookedUp lookUp(const std::string& name) {
  if (name.empty()) return {"no host", {}, "nothing to look up"};
  LookedUp result{name, {}, {}};
  ADDRINFOW wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  ADDRINFOW* first = nullptr;
  const int error = GetAddrInfoW(StringUtils::utf8to16(name).c_str(), nullptr, &wanted, &first);
  const std::unique_ptr<ADDRINFOW, AddressFreer> owner(first);
  if (error != 0) {
    result.problem = systemErrorPhrase(static_cast<std::uint32_t>(error));
    return result;
  }
  for (const ADDRINFOW* one = first; one != nullptr && result.addresses.size() < kMostAddresses;
       one = one->ai_next)
    result.addresses.push_back(numericAddress(*one));
  return result;
}

/// The account service's; a host of the direct-connection domain carries its address.
LookedUp lookUpHost(const std::string& host) {
  const std::string url = "https://" + host;
  const auto direct = directResolveEntry(url);
  if (!direct) return lookUp(hostOf(url));
  // "host:port:address"
  return {hostOf(url), {direct->substr(direct->find(':', direct->find(':') + 1) + 1)}, {}};
}

/// What a transfer that failed in TLS says of itself; empty of others. libcurl's longer words
/// for those may name an address that it could not take apart, with the password in it.
std::string tlsProblem(const HttpContext& response) {
  const bool isOfTls = response.result == CURLE_PEER_FAILED_VERIFICATION ||
                       response.result == CURLE_SSL_CONNECT_ERROR ||
                       response.result == CURLE_SSL_CACERT_BADFILE;
  return isOfTls ? response.error : "";
}

std::optional<std::int64_t> clockAhead(const HttpContext& response, std::int64_t now) {
  for (const auto& [name, value] : response.responseHeaders) {
    if (!os::equalsIgnoringCase(name, "Date")) continue;
    const std::time_t said = curl_getdate(value.c_str(), nullptr);
    if (said != -1) return now - std::int64_t{said};
  }
  return std::nullopt;
}

}  // namespace

Finding checkNames(const std::string& host, const std::string& proxy, const std::string& bypass) {
  std::vector<LookedUp> names;
  if (!proxy.empty()) names.push_back(lookUp(hostOf(proxy)));
  // Behind a proxy the host is the proxy's to look up, unless it may be one of the exceptions.
  if (proxy.empty() || !bypass.empty()) names.push_back(lookUpHost(host));
  return judgeLookUps(names);
}

ListAnswer askAccountService(const std::string& host, const std::string& authorities) {
  ListAnswer answer;
  answer.host = withoutCredentials(host);
  // The service's own request; only its authorities are named, since this program may lie elsewhere.
  const auto transfer = [&](std::shared_ptr<HttpContext> context) {
    context->cacert = authorities;
    auto response = HttpClient::submit(std::move(context))->wait();
    answer.reason = tlsProblem(*response);
    answer.bytes = response->body.size();
    answer.clockAheadSeconds = clockAhead(*response, os::wallTime().seconds);
    return response;
  };
  const auto approved = CertificateProfileClient(host, transfer).fetch();
  if (approved) answer.approved = approved->size();
  if (!approved && answer.reason.empty()) answer.reason = approved.error().reason;
  return answer;
}

}  // namespace zarn::tool

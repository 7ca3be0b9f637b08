#include "trust/account_service_host.h"

#include "os/process.h"
#include "util/product_names.h"

namespace zarn {

std::string accountServiceHost() {
  const auto chosen = environmentVariable(names::kAccountServiceHostVariable.narrow);
  return chosen && !chosen->empty() ? *chosen : builtInAccountServiceHost();
}

std::string builtInAccountServiceHost() {
  return ZARN_ACCOUNT_SERVICE_HOST;
}

}  // namespace zarn

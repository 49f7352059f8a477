#include "tests/sim/http_exchange.h"

#include <algorithm>
#include <cctype>

#include "platform/winhttp.h"

namespace sim {

std::string HttpExchange::header(const std::string& name) const {
  const auto same = [](char one, char other) {
    return std::tolower(static_cast<unsigned char>(one)) == std::tolower(static_cast<unsigned char>(other));
  };
  for (const auto& [key, value] : headers) {
    if (std::equal(key.begin(), key.end(), name.begin(), name.end(), same)) {
      return value;
    }
  }
  return {};
}

std::uint32_t HttpExchange::securityFlags() const {
  const auto found = numberOptions.find(platform::kOptionSecurityFlags);
  return found == numberOptions.end() ? 0 : found->second;
}

}  // namespace sim

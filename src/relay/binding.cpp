#include "relay/binding.hpp"

#include <string_view>

#include "net/text.hpp"

namespace morvane::connector {

bool is_claimed(const std::string& response) {
  return contains(response, R"("status":"ok")") ||
         contains(response, R"("status":"pending_signature")") ||
         contains(response, R"("waiting_for_signature")");
}

std::optional<std::string> wallet_in(const std::string& response) {
  constexpr std::string_view marker = R"("wallet":")";
  const std::size_t at = response.find(marker);
  if (at == std::string::npos) {
    return std::nullopt;
  }
  const std::size_t begin = at + marker.size();
  const std::size_t end = response.find('"', begin);
  if (end == std::string::npos) {
    return std::nullopt;
  }
  return response.substr(begin, end - begin);
}

}  // namespace morvane::connector

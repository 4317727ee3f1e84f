#include "relay/binding.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

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
  std::string wallet = response.substr(begin, end - begin);
  const bool is_text = std::none_of(wallet.begin(), wallet.end(),
                                    [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; });
  return is_text ? std::optional(std::move(wallet)) : std::nullopt;
}

}  // namespace morvane::connector

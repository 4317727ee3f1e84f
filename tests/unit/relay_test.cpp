#include "relay/relay_client.hpp"

#include <gtest/gtest.h>

#include "support.hpp"

namespace morvane::connector {

TEST(Relay, only_a_wallet_is_named_in_a_header) {
  const test::Tools tools;
  tools.add("curl", "printf '%s|' \"$@\"");
  const RelayClient relay("wss://relay.example");
  const std::string url = "https://relay.example/api/connector/bind-status?connectorId=id|";
  EXPECT_EQ(relay.bind_status("", "id"), "-sS|--max-time|15|" + url);
  EXPECT_EQ(relay.bind_status("0xabc", "id"),
            "-sS|--max-time|15|-H|x-morvane-wallet: 0xabc|" + url);
}

}  // namespace morvane::connector

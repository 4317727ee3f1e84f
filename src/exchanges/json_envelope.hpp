#pragma once

#include <string>
#include <utility>

namespace morvane::connector {

// {"status":"ok",...,"body":<body>} around an exchange's raw answer, which is neither parsed nor
// escaped. The answer may be large, so it is wrapped in place: pass it with std::move.
inline std::string ok_json(const std::string& exchange, const std::string& kind, std::string body) {
  body.insert(
      0, R"({"status":"ok","exchange":")" + exchange + R"(","kind":")" + kind + R"(","body":)");
  body += '}';
  return body;
}

// {"status":"error","reason":"<reason>"}; `reason` is one fixed word of the program.
inline std::string fail_json(const std::string& reason) {
  return R"({"status":"error","reason":")" + reason + "\"}";
}

}  // namespace morvane::connector

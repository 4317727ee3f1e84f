#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

// Each fuzz program defines this: one input, checked against what must always hold.
void fuzz_one(const std::string& input);

inline void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

// Included by one file of each program, so it is defined here.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_one(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}

#include "fuzz/fuzz.hpp"
#include "state/record_text.hpp"

using namespace morvane::connector;

namespace {

struct Record {
  std::string name;
  bool flag = false;
};

constexpr RecordFields<Record, 2> fields = {{{"name", &Record::name}, {"flag", &Record::flag}}};

}  // namespace

// Whatever was read is written in a form that reads back the same.
void fuzz_one(const std::string& input) {
  Record first;
  from_text(input, fields, first);
  Record second;
  from_text(to_text(first, fields), fields, second);
  require(first.name == second.name && first.flag == second.flag);
  require(first.name.find('\n') == std::string::npos);
}

// What a check expects, and the finding that follows from it.
#pragma once

#include <string>
#include <string_view>

#include "checks/check.h"

namespace selfcheck {

class Expectations {
 public:
  // If it does not hold, the finding says so: `otherwise` is a sentence without its full stop.
  void that(bool holds, std::string_view otherwise) {
    if (!holds) problems_.append(problems_.empty() ? "" : " ").append(otherwise).append(".");
  }

  // `pass` is a sentence.
  Finding finding(std::string_view pass) const {
    if (problems_.empty()) return {Verdict::Pass, std::string(pass)};
    return {Verdict::Fail, problems_};
  }

 private:
  std::string problems_;
};

}  // namespace selfcheck

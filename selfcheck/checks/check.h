// One check: a question about this Windows or about kiv on it, and what was found.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace selfcheck {

class Ground;

enum class Verdict {
  Pass,
  Fail,
  Fact,     // an answer that documentation leaves open: neither right nor wrong
  Skipped,  // could not be asked here; the text says why
};

/// The text says what was seen. It holds nothing that differs between two runs on one Windows (ports, times, addresses
/// of memory) and no name of a user, a machine or a network: results are compared with a baseline, and sent to others.
struct Finding {
  Verdict verdict = Verdict::Fail;
  std::string text;
};

struct Check {
  std::string_view name;      // stable and unique: "a-proxy-of-a-request-is-obeyed"
  std::string_view question;  // a sentence: "Is a proxy that is set on a request obeyed?"
  Finding (*run)(Ground& ground);
};

/// What stands together on the page.
struct Group {
  std::string_view title;
  std::span<const Check> checks;
};

}  // namespace selfcheck

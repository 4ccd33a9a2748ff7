// Whom a proxy of the ground lets pass.
#pragma once

#include <memory>
#include <optional>

#include "ground/answers.h"
#include "ground/ground.h"

namespace selfcheck {

// Of one connection: NTLM logs a connection on, not a request.
class Gate {
 public:
  Gate() = default;
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  virtual ~Gate() = default;

  struct Refusal {
    Answer answer;
    bool closes = false;  // the connection, behind the answer
  };
  // Nothing lets the request pass.
  virtual std::optional<Refusal> refusal(const HttpRequest& request) = 0;
};

std::unique_ptr<Gate> gateOf(Server proxy);

}  // namespace selfcheck

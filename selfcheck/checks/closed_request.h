// A request that is closed while it waits for a server that never answers.
#pragma once

#include <string>

#include "ground/ground.h"

namespace selfcheck {

enum class Closing {
  NotSent,   // the request never reached the server
  Aborted,   // the handle reported that it closed, while the server was still silent
  Late,      // it did so only when the request's time-out had passed
  Unending,  // it did not even then
};

Closing closeWaitingRequest(const Ground& ground);

}  // namespace selfcheck

// Sessions whose only candidates are the checks' own, whatever the user's settings say.
#pragma once

#include <chrono>

#include "kiv/session.hpp"

namespace selfcheck {

// For what happens at once.
constexpr std::chrono::seconds kPatience{20};

// The settings are waited for no longer than a second.
inline kiv::SessionOptions ownCandidatesOnly() {
  kiv::SessionOptions options;
  options.bypass_list = L"";
  options.discovery_timeout = std::chrono::seconds(1);
  options.timeout = kPatience;
  options.direct = kiv::DirectPolicy::Never;
  options.logged_on_user = kiv::LoggedOnUser::Never;
  return options;
}

}  // namespace selfcheck

// Notifications of changed settings and of a changed network, from kiv-session.dll.
#pragma once

#include <optional>
#include <string>

#include "kiv/session.h"
#include "support/owners.h"

namespace kiv::tool {

// A session that is asked for nothing but its notifications. kiv-session.dll is loaded from the program's folder when
// this object is made, so that all else works without it.
class ChangeNotifications {
 public:
  ChangeNotifications();
  ChangeNotifications(const ChangeNotifications&) = delete;
  ChangeNotifications& operator=(const ChangeNotifications&) = delete;
  ~ChangeNotifications();

  // Why there will be none, for users; empty if there will.
  const std::wstring& problem() const { return problem_; }
  // Set by each change, reset by a successful wait.
  HANDLE event() const { return changed_.get(); }

 private:
  std::wstring begin();

  support::UniqueEvent changed_;
  support::UniqueModule library_;
  KivSession* session_ = nullptr;
  decltype(&KivSession_Destruct) destruct_ = nullptr;
  std::wstring problem_;
};

}  // namespace kiv::tool

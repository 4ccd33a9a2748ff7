// What an observer learns of a discovery while it is under way, and how it is given up.
#pragma once

#include <string>

namespace kiv::impl {

// Called on the thread that discovers. A list is cut off behind kLongestList characters, which no reader of its front
// notices; a longer bypass list is treated as none, because a rule that was cut in two could match what it should not.
class DiscoveryProgress {
 public:
  static constexpr std::size_t kLongestList = 65'536;
  static constexpr std::size_t kLongestBypassList = 1'048'576;

  // The user's settings have been read.
  virtual void settingsRead(const std::wstring& bypassList) = 0;
  // Asked before each script is fetched or run. False gives the discovery up.
  virtual bool isWanted() noexcept = 0;
  // Whether the logged-on user's credentials may be sent to the server of a script that asks for them.
  virtual bool mayLogOn() noexcept = 0;
  // Around the run of a local script: the engine has no documented way to be used by two threads.
  virtual void enterScriptEngine() noexcept = 0;
  virtual void leaveScriptEngine() noexcept = 0;
  // A script has answered, with a list of proxies or with "no proxy".
  virtual void scriptAnswered(bool namesProxies) noexcept = 0;

 protected:
  ~DiscoveryProgress() = default;
};

}  // namespace kiv::impl

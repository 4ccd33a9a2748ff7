// An application whose callbacks answer at once.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kiv/kiv.h"

namespace kiv::bench {

// Its candidates all fail but the last, so that each is tested.
class Application {
 public:
  enum class Log { Dropped, Kept };

  Application(std::size_t candidates, const std::wstring& bypassList, Log log);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;
  ~Application();

  void resolve();
  // Of the last resolution.
  std::size_t lines() const { return lines_; }

 private:
  struct Release {
    void operator()(KivLogger* logger) const { KivLogger_Destruct(logger); }
    void operator()(KivLog* log) const { KivLog_Destruct(log); }
  };

  static Application& self(const void* context) { return *static_cast<Application*>(const_cast<void*>(context)); }
  static int test(const void* client, const void*);
  static void dropLine(void* context, const KivLog* log);
  static void keepLine(void* context, const KivLog* log);

  std::size_t candidates_;
  std::size_t tests_ = 0;
  std::size_t lines_ = 0;
  std::vector<std::unique_ptr<KivLog, Release>> kept_;
  std::unique_ptr<KivLogger, Release> logger_;
};

}  // namespace kiv::bench

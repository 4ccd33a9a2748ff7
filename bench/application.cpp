// An application whose callbacks answer at once.
#include "application.h"

#include "quick_platform.h"

namespace kiv::bench {

Application::Application(std::size_t candidates, const std::wstring& bypassList, Log log) : candidates_(candidates) {
  for (std::size_t i = 0; i < candidates; ++i) {
    platform().manualList += L"gate" + std::to_wstring(i) + L".corp.example:8080;";
  }
  platform().bypassList = bypassList;
  logger_.reset(KivLogger_Construct(this, log == Log::Kept ? keepLine : dropLine));
}

Application::~Application() { platform() = {}; }

int Application::test(const void* client, const void* /*logContext*/) {
  Application& application = self(client);
  return ++application.tests_ == application.candidates_ ? 200 : 502;
}

void Application::dropLine(void* context, const KivLog* /*log*/) { ++self(context).lines_; }

void Application::keepLine(void* context, const KivLog* log) {
  ++self(context).lines_;
  self(context).kept_.emplace_back(KivLog_CopyConstruct(log));
}

void Application::resolve() {
  tests_ = 0;
  lines_ = 0;
  KivProxyConfig_Destruct(KivProxyResolver_Resolve(
      L"http://www.target.example/", L"bench", nullptr, nullptr, nullptr, this,
      [](const void*, KivProxyConfig*) { return 1; }, this, [](const void*, const wchar_t*) { return KivCred_None(); },
      this, [](const void*, KivProxyConfig*) { return KivCred_None(); }, this, test,
      [](void*, KivCred* cred) { KivCred_Destruct(cred); }, [](void*, KivProxyConfig*) {}, this,
      [](const void* context) { return self(context).logger_.get(); }));
  kept_.clear();
}

}  // namespace kiv::bench

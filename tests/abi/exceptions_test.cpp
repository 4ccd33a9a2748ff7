// A C++ host over the shipped kiv.dll whose callbacks throw: what passes through the interface, and what does not.
#include <stdexcept>
#include <string>
#include <vector>

#include "check.h"
#include "kiv/kiv.h"

namespace {

struct Thrown : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void throwFromLog(void*, const KivLog* log) {
  throw Thrown(KivLog_IsError(log) ? "from an error" : "from another level");
}

void whatALogCallbackThrowsReachesTheCaller() {
  KivLogger* logger = KivLogger_Construct(nullptr, throwFromLog);
  std::string caught;
  try {
    KivLogger_Error(logger, L"text");
  } catch (const Thrown& thrown) {
    caught = thrown.what();
  }
  CHECK(caught == "from an error");
  KivLogger_Destruct(logger);
}

// A host whose callback number `thrower` throws, and which keeps the lines of the log.
struct Host {
  int thrower = 0;
  std::vector<std::wstring> lines;
  KivLogger* logger = KivLogger_Construct(this, keepLine);

  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() { KivLogger_Destruct(logger); }

  static void keepLine(void* self, const KivLog* log) {
    static_cast<Host*>(self)->lines.emplace_back(KivLog_Message(log));
  }
  void mayThrow(int number) const {
    if (thrower == number) throw Thrown("from a callback");
  }
};

const Host& hostOf(const void* context) { return *static_cast<const Host*>(context); }

KivProxyConfig* resolve(Host& host) {
  KivProxyConfig* preferred = KivProxyConfig_Http(L"gate", 8080, nullptr);
  KivProxyConfig* found = KivProxyResolver_Resolve(
      L"http://target/", L"agent", L"", preferred, nullptr, &host,
      [](const void* context, KivProxyConfig*) { return hostOf(context).mayThrow(1), 1; }, &host,
      [](const void* context, const wchar_t*) { return hostOf(context).mayThrow(2), KivCred_None(); }, &host,
      [](const void* context, KivProxyConfig*) { return hostOf(context).mayThrow(3), KivCred_None(); }, &host,
      [](const void* context, const void*) {
        return hostOf(context).mayThrow(4), hostOf(context).thrower == 2 ? 401 : 407;
      },
      [](void* context, KivCred* cred) { KivCred_Destruct(cred), hostOf(context).mayThrow(5); },
      [](void* context, KivProxyConfig*) { hostOf(context).mayThrow(6); }, &host,
      [](const void* context) { return hostOf(context).logger; });
  KivProxyConfig_Destruct(preferred);
  return found;
}

void whatACallbackOfAResolutionThrowsDoesNot() {
  for (int thrower = 1; thrower <= 6; ++thrower) {
    Host host;
    host.thrower = thrower;
    CHECK(resolve(host) == nullptr);
    CHECK(!host.lines.empty() && host.lines.back() == L"END: ProxyResolver");
  }
}

}  // namespace

int main() {
  whatALogCallbackThrowsReachesTheCaller();
  whatACallbackOfAResolutionThrowsDoesNot();
  return report_checks();
}

// An application that answers the callbacks of resolutions from a script, and keeps one transcript of all that it is
// told.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kiv/kiv.h"
#include "log/logger.h"
#include "platform/memory_watch.h"
#include "unit/support/handles.h"
#include "unit/support/recorded_log.h"

namespace kiv::test {

// "null", "none", "direct", or the text form with credentials. Its own blocks are not watched, since they may hold a
// password.
inline std::wstring textOf(const KivProxyConfig* config) {
  const MemoryWatch::Pause pause;
  if (!config) return L"null";
  if (KivProxyConfig_IsNone(config)) return L"none";
  if (KivProxyConfig_IsDirect(config)) return L"direct";
  std::wstring text;
  KivProxyConfig_ToString(config, 1, 1, &text, [](void* context, const wchar_t* given) {
    if (given) *static_cast<std::wstring*>(context) = given;
  });
  return text;
}
inline std::wstring textOf(const UniqueProxyConfig& config) { return textOf(config.get()); }

// "null", "none" or "user:password"; not watched either.
inline std::wstring textOf(const KivCred* cred) {
  const MemoryWatch::Pause pause;
  if (!cred) return L"null";
  if (KivCred_IsNone(cred)) return L"none";
  const UniqueSecStr password(KivCred_Password(cred));
  const wchar_t* characters = KivSecStr_CStr(password.get());
  return std::wstring(KivCred_Username(cred)) + L":" + (characters ? characters : L"(null)");
}

inline UniqueProxyConfig parsed(const wchar_t* text) { return UniqueProxyConfig(KivProxyConfig_Parse(text, nullptr)); }

// Everything that KivProxyResolver_Resolve takes, in its order.
struct ResolveArguments {
  const wchar_t* targetUrl = nullptr;
  const wchar_t* userAgent = nullptr;
  const wchar_t* bypassList = nullptr;
  KivProxyConfig* preferred = nullptr;
  KivProxyConfig* fallback = nullptr;
  const void* filterContext = nullptr;
  KivCandidateFilter filter = nullptr;
  const void* serverCredContext = nullptr;
  KivServerCredSource serverCred = nullptr;
  const void* proxyCredContext = nullptr;
  KivProxyCredSource proxyCred = nullptr;
  void* client = nullptr;
  KivTestConnection testConnection = nullptr;
  KivSetServerCred setServerCred = nullptr;
  KivSetProxy setProxy = nullptr;
  const void* logContext = nullptr;
  KivLoggerGetter getLogger = nullptr;

  UniqueProxyConfig resolve() const {
    const MemoryWatch::Resume resume;
    return UniqueProxyConfig(KivProxyResolver_Resolve(
        targetUrl, userAgent, bypassList, preferred, fallback, filterContext, filter, serverCredContext, serverCred,
        proxyCredContext, proxyCred, client, testConnection, setServerCred, setProxy, logContext, getLogger));
  }
};

// The six callbacks and the log write into one transcript, in order:
//   "I: text"                  a log line
//   "filter http://proxy:80"   the filter was asked about a candidate
//   "setServerCred user:pass"  and "none", or "null" if it was given no handle
//   "setProxy http://proxy:80"
//   "test 407"                 a test request ended with this status
//   "proxyCred http://proxy"   credentials for this proxy were asked for
//   "serverCred http://target" credentials for this URL were asked for
// Whatever the application allocates for itself is not watched.
class ScriptedApplication {
 public:
  struct Login {
    const wchar_t* user;
    const wchar_t* password;
  };

  ScriptedApplication() {
    log_.onLine = [this](const std::wstring& line) { note(line); };
  }
  ~ScriptedApplication() {
    const MemoryWatch::Pause pause;
    transcript_ = {};
  }
  ScriptedApplication(const ScriptedApplication&) = delete;
  ScriptedApplication& operator=(const ScriptedApplication&) = delete;

  // The script.
  const wchar_t* targetUrl = L"http://target/";
  std::function<bool(const std::wstring& candidate)> keep;  // absent: all
  std::deque<int> statuses;                                 // of the test requests, consumed from the front
  int otherwise = 200;                                      // the status when they are used up
  std::optional<Login> proxyLogin, serverLogin;             // absent: none credentials
  KivHttpClient* client = nullptr;  // if set, is what the callbacks work on, and what sends the test requests
  bool engaged = true;              // a logger that is not engaged drops every line
  bool exempt = false;              // the credentials that it makes are not watched either
  // Called with each entry of the transcript, after it was added. It may throw.
  std::function<void(const std::wstring& entry)> onEntry;
  // Called with each configuration that a callback is given.
  std::function<void(KivProxyConfig* borrowed)> onBorrowed;

  // The record.
  const std::vector<std::wstring>& transcript() const { return transcript_; }
  const std::vector<std::wstring>& lines() const { return log_.lines(); }
  int loggerRequests() const { return loggerRequests_; }
  void forget() {
    transcript_.clear();
    log_.clear();
    loggerRequests_ = 0;
  }
  void forbid(std::wstring_view password) { log_.forbid(password); }
  KivLogger* logger() { return log_.logger(); }

  ResolveArguments arguments() {
    return {.targetUrl = targetUrl,
            .userAgent = L"agent",
            .filterContext = &filterContext_,
            .filter = filter,
            .serverCredContext = &serverCredContext_,
            .serverCred = serverCred,
            .proxyCredContext = &proxyCredContext_,
            .proxyCred = proxyCred,
            .client = &clientContext_,
            .testConnection = testConnection,
            .setServerCred = setServerCred,
            .setProxy = setProxy,
            .logContext = &logContext_,
            .getLogger = getLogger};
  }

  UniqueProxyConfig resolve(KivProxyConfig* preferred = nullptr, KivProxyConfig* fallback = nullptr,
                            const wchar_t* bypassList = nullptr) {
    ResolveArguments all = arguments();
    all.preferred = preferred;
    all.fallback = fallback;
    all.bypassList = bypassList;
    return all.resolve();
  }
  UniqueProxyConfig resolve(const UniqueProxyConfig& preferred, const UniqueProxyConfig& fallback = {}) {
    return resolve(preferred.get(), fallback.get());
  }

 private:
  // What a callback's context points at; each callback must be given its own.
  struct Context {
    ScriptedApplication* application;
    const char* role;
  };

  static ScriptedApplication& of(const void* context, const char* role) {
    const auto& given = *static_cast<const Context*>(context);
    EXPECT_STREQ(given.role, role) << "a callback was given the wrong context";
    return *given.application;
  }

  void note(const std::wstring& entry) {
    transcript_.push_back(entry);
    if (onEntry) onEntry(entry);
  }

  void borrow(KivProxyConfig* config) const {
    if (onBorrowed) onBorrowed(config);
  }

  KivCred* make(const std::optional<Login>& login) const {
    const auto create = [&] { return login ? KivCred_Create(login->user, login->password) : KivCred_None(); };
    if (exempt) return create();
    const MemoryWatch::Resume resume;
    return create();
  }

  static int filter(const void* context, KivProxyConfig* candidate) {
    const MemoryWatch::Pause pause;
    ScriptedApplication& application = of(context, "filter");
    const std::wstring text = textOf(candidate);
    application.borrow(candidate);
    application.note(L"filter " + text);
    return !application.keep || application.keep(text) ? 2 : 0;
  }

  static KivCred* serverCred(const void* context, const wchar_t* url) {
    const MemoryWatch::Pause pause;
    ScriptedApplication& application = of(context, "serverCred");
    application.note(std::wstring(L"serverCred ") + url);
    return application.make(application.serverLogin);
  }

  static KivCred* proxyCred(const void* context, KivProxyConfig* proxy) {
    const MemoryWatch::Pause pause;
    ScriptedApplication& application = of(context, "proxyCred");
    const std::wstring text = textOf(proxy);
    application.borrow(proxy);
    application.note(L"proxyCred " + text);
    return application.make(application.proxyLogin);
  }

  static int testConnection(const void* context, const void* logContext) {
    const MemoryWatch::Pause pause;
    ScriptedApplication& application = of(context, "client");
    of(logContext, "log");
    const int status = application.send();
    application.note(L"test " + std::to_wstring(status));
    return status;
  }

  int send() {
    if (client) {
      const MemoryWatch::Resume resume;
      return KivHttpClient_Head(client, log_.logger());
    }
    if (statuses.empty()) return otherwise;
    const int status = statuses.front();
    statuses.pop_front();
    return status;
  }

  static void setServerCred(void* context, KivCred* cred) {
    const MemoryWatch::Pause pause;
    const UniqueCred owned(cred);
    ScriptedApplication& application = of(context, "client");
    const std::wstring text = textOf(cred);
    if (application.client) {
      const MemoryWatch::Resume resume;
      KivHttpClient_SetServerCred(application.client, cred);
    }
    application.note(L"setServerCred " + text);
  }

  static void setProxy(void* context, KivProxyConfig* proxy) {
    const MemoryWatch::Pause pause;
    ScriptedApplication& application = of(context, "client");
    const std::wstring text = textOf(proxy);
    if (application.client) {
      const MemoryWatch::Resume resume;
      KivHttpClient_SetProxy(application.client, proxy);
    }
    application.borrow(proxy);
    application.note(L"setProxy " + text);
  }

  static KivLogger* getLogger(const void* context) {
    ScriptedApplication& application = of(context, "log");
    ++application.loggerRequests_;
    return application.engaged ? application.log_.logger() : support::toHandle<KivLogger>(&application.silent_);
  }

  RecordedLog log_;
  impl::Logger silent_;
  std::vector<std::wstring> transcript_;
  int loggerRequests_ = 0;
  Context filterContext_{this, "filter"};
  Context serverCredContext_{this, "serverCred"};
  Context proxyCredContext_{this, "proxyCred"};
  Context clientContext_{this, "client"};
  Context logContext_{this, "log"};
};

}  // namespace kiv::test

// What tests of whole sessions stand on: a session on the simulated platform, and proxies in one line each.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kiv/session.h"
#include "platform/platform_test.h"
#include "platform/virtual_time.h"

namespace kiv::test {

using namespace std::chrono_literals;

// The helpers below let the library's allocations fail and be counted, even where the test's own are exempted.

template <class Handle, void (*kRelease)(Handle*)>
struct ReleaseHandle {
  void operator()(Handle* handle) const noexcept {
    const MemoryWatch::Resume resume;
    kRelease(handle);
  }
};
using UniqueSession = std::unique_ptr<KivSession, ReleaseHandle<KivSession, KivSession_Destruct>>;
using UniqueRequest = std::unique_ptr<KivRequest, ReleaseHandle<KivRequest, KivRequest_Release>>;
using UniqueDecision = std::unique_ptr<KivDecision, ReleaseHandle<KivDecision, KivDecision_Release>>;
using UniqueEventHandle = std::unique_ptr<KivEvent, ReleaseHandle<KivEvent, KivEvent_Release>>;
using UniqueChallenge = std::unique_ptr<KivChallenge, ReleaseHandle<KivChallenge, KivChallenge_Release>>;
using UniqueAuth = std::unique_ptr<KivAuth, ReleaseHandle<KivAuth, KivAuth_Release>>;

inline UniqueSession newSession(const wchar_t* userAgent = L"test/1") {
  KivSession* session = nullptr;
  EXPECT_EQ(KivSession_Create(userAgent, &session), KIV_STATUS_OK);
  return UniqueSession(session);
}

struct Result {
  KivStatus status = KIV_STATUS_OK;
  UniqueDecision decision = {};

  std::wstring route() const {
    if (!decision) return L"no decision";
    if (KivDecision_Kind(decision.get()) == KIV_KIND_NONE) return L"none";
    return KivDecision_Kind(decision.get()) == KIV_KIND_DIRECT ? L"direct" : KivDecision_ProxyUrl(decision.get());
  }
  std::uint32_t reason() const { return KivDecision_Reason(decision.get()); }
};

inline Result resolve(const UniqueSession& session, const wchar_t* url, std::uint32_t timeout = 0) {
  KivDecision* decision = nullptr;
  const MemoryWatch::Resume resume;
  const KivStatus status = KivSession_Resolve(session.get(), url, timeout, &decision);
  return {status, UniqueDecision(decision)};
}

inline Result lookup(const UniqueSession& session, const wchar_t* url) {
  KivDecision* decision = nullptr;
  const MemoryWatch::Resume resume;
  const KivStatus status = KivSession_Lookup(session.get(), url, &decision);
  return {status, UniqueDecision(decision)};
}

struct Started {
  KivStatus status = KIV_STATUS_OK;
  UniqueRequest request = {};

  Result wait(std::uint32_t timeout = KIV_NO_TIME_OUT) const {
    KivDecision* decision = nullptr;
    const MemoryWatch::Resume resume;
    const KivStatus ended = KivRequest_Wait(request.get(), timeout, &decision);
    return {ended, UniqueDecision(decision)};
  }
};

inline Started start(const UniqueSession& session, const wchar_t* url, std::uint32_t timeout = 0, std::uint64_t tag = 0,
                     KivDoneFunction done = nullptr) {
  KivRequest* request = nullptr;
  const MemoryWatch::Resume resume;
  const KivStatus status = KivSession_Start(session.get(), url, timeout, tag, done, &request);
  return {status, UniqueRequest(request)};
}

struct Told {
  KivStatus status = KIV_STATUS_OK;
  UniqueEventHandle event = {};

  std::uint32_t kind() const { return KivEvent_Kind(event.get()); }
  UniqueChallenge challenge() const { return UniqueChallenge(KivEvent_Challenge(event.get())); }
};

inline Told next(const UniqueSession& session, std::uint32_t timeout = 0) {
  KivEvent* event = nullptr;
  const MemoryWatch::Resume resume;
  const KivStatus status = KivSession_Next(session.get(), timeout, &event);
  return {status, UniqueEventHandle(event)};
}

inline std::uint64_t counter(const UniqueSession& session, std::uint32_t which) {
  return KivSession_GetCounter(session.get(), which);
}

// "host:port" of the proxy that a request goes through; empty if it goes directly.
inline std::wstring proxyOf(const RequestRecord& request) {
  return request.proxy && request.proxy->list ? *request.proxy->list : std::wstring();
}

// What a proxy does that answers every request with 407, until it is sent the right password.
inline Exchange wantsPassword(const RequestRecord& request, const std::wstring& password) {
  if (!request.credentials.empty() && request.credentials.back().password == password) return {.status = 200};
  return {.status = 407, .fields = {{L"Proxy-Authenticate", L"Basic realm=\"office\""}}};
}

class SessionTest : public PlatformTest {
 protected:
  SessionTest() { windows.user.proxy = std::nullopt; }
  ~SessionTest() override {
    session.reset();
    time.settle();
  }

  void useProxies(const std::wstring& list) { windows.user.proxy = list; }
  void set(std::uint32_t option, std::uint32_t value) {
    EXPECT_EQ(KivSession_SetNumber(session.get(), option, value), KIV_STATUS_OK);
  }
  std::chrono::milliseconds elapsedSince(std::chrono::milliseconds begun) const { return time.now() - begun; }
  // Requests sent through that proxy, "" for those sent directly.
  std::size_t sentThrough(const std::wstring& proxy) const {
    std::size_t sent = 0;
    for (const RequestRecord& request : windows.requests()) sent += proxyOf(request) == proxy ? request.sends : 0;
    return sent;
  }

  VirtualTime time{windows};
  UniqueSession session = newSession();
};

}  // namespace kiv::test

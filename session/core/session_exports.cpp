// The C functions of sessions and requests.
#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "core/call.h"
#include "core/session.h"
#include "loop/process.h"
#include "support/border.h"

namespace kiv::session {
namespace {

// The characters up to the terminator, or none if there are more than `most`: a text from outside is not read further.
std::optional<std::wstring_view> boundedText(const wchar_t* text, std::size_t most) {
  std::size_t length = 0;
  while (text[length] != L'\0') {
    if (++length > most) return std::nullopt;
  }
  return std::wstring_view(text, length);
}

bool isUserAgent(std::wstring_view text) {
  constexpr wchar_t kDelete = 0x7F;
  return std::ranges::none_of(text, [](wchar_t c) { return c < L' ' || c == kDelete; });
}

template <class Handle>
bool clear(Handle** output) noexcept {
  if (output) *output = nullptr;
  return output != nullptr;
}

template <class Function>
KivStatus setCallback(KivSession* session, Callback<Function> Callbacks::*which, Function function, void* context) {
  return call(session, [&](Call& inside) {
    return inside.session().configure([&](Options& /*options*/, Callbacks& callbacks) {
      callbacks.*which = {function, context};
      return KIV_STATUS_OK;
    });
  });
}

}  // namespace
}  // namespace kiv::session

using kiv::session::Call;
using kiv::session::call;
using kiv::session::Callbacks;
using kiv::session::clear;
using kiv::session::Decision;
using kiv::session::Event;
using kiv::session::Options;
using kiv::session::Ref;
using kiv::session::Request;
using kiv::session::Session;
using kiv::session::setCallback;
using kiv::session::statusOf;
using kiv::support::toHandle;
using kiv::support::toObject;

uint32_t KivSession_Version(void) { return KIV_VERSION_MAJOR * 65536U + KIV_VERSION_MINOR * 256U + KIV_VERSION_PATCH; }

KivStatus KivSession_Create(const wchar_t* userAgent, KivSession** session) {
  constexpr std::size_t kLongestUserAgent = 1'024;
  if (!clear(session) || !userAgent) return KIV_STATUS_BAD_ARGUMENT;
  const std::optional<std::wstring_view> agent = kiv::session::boundedText(userAgent, kLongestUserAgent);
  if (!agent || !kiv::session::isUserAgent(*agent)) return KIV_STATUS_BAD_ARGUMENT;
  // The pool's callbacks, and calls of the system that were abandoned, can outlive every session.
  kiv::support::keepLoaded();
  return statusOf([&] {
    *session = toHandle<KivSession>(new Session(std::wstring(*agent)));
    return KIV_STATUS_OK;
  });
}

void KivSession_Close(KivSession* session) {
  if (!session || kiv::session::processEnds()) return;
  Call(session).session().close();
}

void KivSession_Destruct(KivSession* session) {
  if (!session || kiv::session::processEnds()) return;
  toObject(session)->close();
  if (toObject(session)->gate().giveUp()) toObject(session)->releaseHandle();
}

KivStatus KivSession_SetNumber(KivSession* session, uint32_t option, uint32_t value) {
  return call(session, [&](Call& inside) {
    if (option == KIV_OPTION_LOG_LEVEL) return inside.session().setLogLevel(value);
    return inside.session().configure(
        [&](Options& options, Callbacks& /*callbacks*/) { return options.setNumber(option, value); });
  });
}

KivStatus KivSession_SetText(KivSession* session, uint32_t option, const wchar_t* text) {
  return call(session, [&](Call& inside) {
    return inside.session().configure(
        [&](Options& options, Callbacks& /*callbacks*/) { return options.setText(option, text); });
  });
}

KivStatus KivSession_SetProxy(KivSession* session, uint32_t which, const wchar_t* text, const wchar_t* user,
                              const wchar_t* password) {
  return call(session, [&](Call& inside) { return inside.session().setProxy(which, text, user, password); });
}

KivStatus KivSession_SetWake(KivSession* session, KivWakeFunction function, void* context) {
  return setCallback(session, &Callbacks::wake, function, context);
}

KivStatus KivSession_SetFilter(KivSession* session, KivFilterFunction function, void* context) {
  return setCallback(session, &Callbacks::filter, function, context);
}

KivStatus KivSession_SetCredentialCallback(KivSession* session, KivCredentialFunction function, void* context) {
  return setCallback(session, &Callbacks::credentials, function, context);
}

KivStatus KivSession_SetLog(KivSession* session, KivLogFunction function, void* context) {
  return setCallback(session, &Callbacks::log, function, context);
}

KivStatus KivSession_SetChanged(KivSession* session, KivChangedFunction function, void* context) {
  return setCallback(session, &Callbacks::changed, function, context);
}

KivStatus KivSession_Lookup(KivSession* session, const wchar_t* url, KivDecision** decision) {
  if (!clear(decision) || !url) return KIV_STATUS_BAD_ARGUMENT;
  return call(session, [&](Call& inside) {
    Ref<Decision> found;
    const KivStatus status = inside.session().lookup(url, inside.stripe(), found);
    *decision = toHandle<KivDecision>(found.detach());
    return status;
  });
}

KivStatus KivSession_Resolve(KivSession* session, const wchar_t* url, uint32_t timeout, KivDecision** decision) {
  if (!clear(decision) || !url) return KIV_STATUS_BAD_ARGUMENT;
  return call(session, [&](Call& inside) {
    Ref<Decision> found;
    const KivStatus status = inside.session().resolve(url, timeout, inside.stripe(), found);
    *decision = toHandle<KivDecision>(found.detach());
    return status;
  });
}

KivStatus KivSession_Start(KivSession* session, const wchar_t* url, uint32_t timeout, uint64_t tag,
                           KivDoneFunction done, KivRequest** request) {
  if (request) *request = nullptr;
  if (!url) return KIV_STATUS_BAD_ARGUMENT;
  return call(session, [&](Call& inside) {
    Ref<Request> begun;
    const KivStatus status = inside.session().start(url, timeout, tag, done, begun);
    if (request) *request = toHandle<KivRequest>(begun.detach());
    return status;
  });
}

void KivRequest_Cancel(KivRequest* request) {
  if (request) toObject(request)->cancel();
}

KivStatus KivRequest_Wait(KivRequest* request, uint32_t timeout, KivDecision** decision) {
  if (!clear(decision) || !request) return KIV_STATUS_BAD_ARGUMENT;
  Ref<Decision> found;
  const KivStatus status = toObject(request)->wait(timeout, found);
  *decision = toHandle<KivDecision>(found.detach());
  return status;
}

void KivRequest_Release(KivRequest* request) {
  if (request && !kiv::session::processEnds()) toObject(request)->release();
}

KivStatus KivSession_ReportFailure(KivSession* session, KivDecision* decision, uint32_t reason) {
  if (!decision) return KIV_STATUS_BAD_ARGUMENT;
  return call(session, [&](Call& inside) { return inside.session().reportFailure(*toObject(decision), reason); });
}

void KivSession_Forget(KivSession* session) {
  if (session) Call(session).session().forgetDecisions();
}

void KivSession_ForgetCredentials(KivSession* session) {
  if (session) Call(session).session().forgetCredentials();
}

uint64_t KivSession_GetCounter(KivSession* session, uint32_t counter) {
  return session ? Call(session).session().counter(counter) : 0;
}

KivStatus KivSession_Next(KivSession* session, uint32_t timeout, KivEvent** event) {
  if (!clear(event)) return KIV_STATUS_BAD_ARGUMENT;
  return call(session, [&](Call& inside) {
    Ref<Event> next;
    const KivStatus status = inside.session().next(timeout, next);
    *event = toHandle<KivEvent>(next.detach());
    return status;
  });
}

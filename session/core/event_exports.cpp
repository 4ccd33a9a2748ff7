// The C functions of events and challenges.
#include "core/challenge.h"
#include "core/event.h"
#include "core/session.h"
#include "loop/process.h"
#include "support/border.h"

using kiv::session::ChallengeHandle;
using kiv::session::Decision;
using kiv::session::processEnds;
using kiv::session::Ref;
using kiv::session::statusOf;
using kiv::support::toHandle;
using kiv::support::toObject;

uint32_t KivEvent_Kind(const KivEvent* event) { return event ? toObject(event)->contents().kind : 0; }

uint64_t KivEvent_Tag(const KivEvent* event) { return event ? toObject(event)->contents().tag : 0; }

uint32_t KivEvent_Status(const KivEvent* event) { return event ? toObject(event)->contents().status : 0; }

KivDecision* KivEvent_Decision(const KivEvent* event) {
  return event ? toHandle<KivDecision>(Ref<Decision>(toObject(event)->contents().decision).detach()) : nullptr;
}

KivChallenge* KivEvent_Challenge(const KivEvent* event) {
  return event ? toHandle<KivChallenge>(ChallengeHandle(toObject(event)->contents().challenge).detach()) : nullptr;
}

const wchar_t* KivEvent_Text(const KivEvent* event) { return event ? toObject(event)->contents().text.c_str() : L""; }

void KivEvent_Release(KivEvent* event) {
  if (event && !processEnds()) toObject(event)->release();
}

const wchar_t* KivChallenge_Proxy(const KivChallenge* challenge) {
  return challenge ? toObject(challenge)->proxy() : L"";
}

uint32_t KivChallenge_Scheme(const KivChallenge* challenge) { return challenge ? toObject(challenge)->scheme() : 0; }

const wchar_t* KivChallenge_Realm(const KivChallenge* challenge) {
  return challenge ? toObject(challenge)->realm() : L"";
}

uint32_t KivChallenge_Attempt(const KivChallenge* challenge) { return challenge ? toObject(challenge)->attempt() : 0; }

int KivChallenge_IsWithdrawn(const KivChallenge* challenge) {
  return challenge && toObject(challenge)->isWithdrawn() ? 1 : 0;
}

KivStatus KivChallenge_Answer(KivChallenge* challenge, const wchar_t* user, const wchar_t* password) {
  if (!challenge || !user || *user == L'\0') return KIV_STATUS_BAD_ARGUMENT;
  return statusOf([&] { return toObject(challenge)->answer(user, password); });
}

KivStatus KivChallenge_Decline(KivChallenge* challenge) {
  return challenge ? toObject(challenge)->decline() : KIV_STATUS_BAD_ARGUMENT;
}

void KivChallenge_Release(KivChallenge* challenge) {
  if (challenge && !processEnds()) ChallengeHandle::adopt(toObject(challenge));
}

/* The functions that kiv-session.dll exports: all of them, and nothing else. X is expanded with each name. */
#ifndef KIV_TESTS_SESSION_EXPORTS_H
#define KIV_TESTS_SESSION_EXPORTS_H

#define KIV_SESSION_EXPORTS(X)        \
  X(KivAuth_Create)                   \
  X(KivAuth_Next)                     \
  X(KivAuth_Release)                  \
  X(KivChallenge_Answer)              \
  X(KivChallenge_Attempt)             \
  X(KivChallenge_Decline)             \
  X(KivChallenge_IsWithdrawn)         \
  X(KivChallenge_Proxy)               \
  X(KivChallenge_Realm)               \
  X(KivChallenge_Release)             \
  X(KivChallenge_Scheme)              \
  X(KivDecision_Age)                  \
  X(KivDecision_AuthScheme)           \
  X(KivDecision_Credentials)          \
  X(KivDecision_Host)                 \
  X(KivDecision_Kind)                 \
  X(KivDecision_Port)                 \
  X(KivDecision_ProxyUrl)             \
  X(KivDecision_Reason)               \
  X(KivDecision_Release)              \
  X(KivDecision_Retain)               \
  X(KivDecision_Scheme)               \
  X(KivEvent_Challenge)               \
  X(KivEvent_Decision)                \
  X(KivEvent_Kind)                    \
  X(KivEvent_Release)                 \
  X(KivEvent_Status)                  \
  X(KivEvent_Tag)                     \
  X(KivEvent_Text)                    \
  X(KivRequest_Cancel)                \
  X(KivRequest_Release)               \
  X(KivRequest_Wait)                  \
  X(KivSession_Close)                 \
  X(KivSession_Create)                \
  X(KivSession_Destruct)              \
  X(KivSession_Forget)                \
  X(KivSession_ForgetCredentials)     \
  X(KivSession_GetCounter)            \
  X(KivSession_Lookup)                \
  X(KivSession_Next)                  \
  X(KivSession_ReportFailure)         \
  X(KivSession_Resolve)               \
  X(KivSession_SetChanged)            \
  X(KivSession_SetCredentialCallback) \
  X(KivSession_SetFilter)             \
  X(KivSession_SetLog)                \
  X(KivSession_SetNumber)             \
  X(KivSession_SetProxy)              \
  X(KivSession_SetText)               \
  X(KivSession_SetWake)               \
  X(KivSession_Start)                 \
  X(KivSession_Version)               \
  X(KivStatus_Text)

#endif

// The security packages' interface, for builds on other systems; layouts as on Windows.
#pragma once

#include <windows.h>

#define SEC_E_OK 0
#define SEC_I_CONTINUE_NEEDED (static_cast<SECURITY_STATUS>(0x00090312))
#define SEC_I_COMPLETE_NEEDED (static_cast<SECURITY_STATUS>(0x00090313))
#define SEC_I_COMPLETE_AND_CONTINUE (static_cast<SECURITY_STATUS>(0x00090314))
#define SEC_E_INSUFFICIENT_MEMORY (static_cast<SECURITY_STATUS>(0x80090300))
#define SEC_E_INVALID_HANDLE (static_cast<SECURITY_STATUS>(0x80090301))
#define SEC_E_UNSUPPORTED_FUNCTION (static_cast<SECURITY_STATUS>(0x80090302))
#define SEC_E_TARGET_UNKNOWN (static_cast<SECURITY_STATUS>(0x80090303))
#define SEC_E_INTERNAL_ERROR (static_cast<SECURITY_STATUS>(0x80090304))
#define SEC_E_SECPKG_NOT_FOUND (static_cast<SECURITY_STATUS>(0x80090305))
#define SEC_E_INVALID_TOKEN (static_cast<SECURITY_STATUS>(0x80090308))
#define SEC_E_LOGON_DENIED (static_cast<SECURITY_STATUS>(0x8009030C))
#define SEC_E_UNKNOWN_CREDENTIALS (static_cast<SECURITY_STATUS>(0x8009030D))
#define SEC_E_NO_CREDENTIALS (static_cast<SECURITY_STATUS>(0x8009030E))
#define SEC_E_BUFFER_TOO_SMALL (static_cast<SECURITY_STATUS>(0x80090321))

#define SECBUFFER_VERSION 0
#define SECBUFFER_TOKEN 2
#define SECURITY_NATIVE_DREP 0x00000010
#define SECPKG_CRED_OUTBOUND 0x00000002
#define ISC_REQ_DELEGATE 0x00000001
#define ISC_REQ_MUTUAL_AUTH 0x00000002
#define ISC_REQ_ALLOCATE_MEMORY 0x00000100
#define ISC_REQ_CONNECTION 0x00000800
#define SEC_WINNT_AUTH_IDENTITY_UNICODE 0x2

using SECURITY_STATUS = LONG;
using SEC_WCHAR = WCHAR;
using TimeStamp = LARGE_INTEGER;
using PTimeStamp = TimeStamp*;
using SEC_GET_KEY_FN = void(WINAPI*)(void*, void*, ULONG, void**, SECURITY_STATUS*);

struct SecHandle {
  ULONG_PTR dwLower;
  ULONG_PTR dwUpper;
};
using CredHandle = SecHandle;
using PCredHandle = SecHandle*;
using CtxtHandle = SecHandle;
using PCtxtHandle = SecHandle*;
static_assert(sizeof(SecHandle) == 16);

#define SecInvalidateHandle(handle) \
  ((handle)->dwLower = static_cast<ULONG_PTR>(-1), (handle)->dwUpper = static_cast<ULONG_PTR>(-1))
#define SecIsValidHandle(handle) \
  (((handle)->dwLower != static_cast<ULONG_PTR>(-1)) && ((handle)->dwUpper != static_cast<ULONG_PTR>(-1)))

struct SecBuffer {
  ULONG cbBuffer;
  ULONG BufferType;
  void* pvBuffer;
};
using PSecBuffer = SecBuffer*;
static_assert(sizeof(SecBuffer) == 16);

struct SecBufferDesc {
  ULONG ulVersion;
  ULONG cBuffers;
  PSecBuffer pBuffers;
};
using PSecBufferDesc = SecBufferDesc*;
static_assert(sizeof(SecBufferDesc) == 16);

struct SecPkgInfoW {
  ULONG fCapabilities;
  USHORT wVersion;
  USHORT wRPCID;
  ULONG cbMaxToken;
  SEC_WCHAR* Name;
  SEC_WCHAR* Comment;
};
using PSecPkgInfoW = SecPkgInfoW*;
static_assert(sizeof(SecPkgInfoW) == 32);

// The texts are wchar_t in disguise, as on Windows; the lengths count characters.
struct SEC_WINNT_AUTH_IDENTITY_W {
  USHORT* User;
  ULONG UserLength;
  USHORT* Domain;
  ULONG DomainLength;
  USHORT* Password;
  ULONG PasswordLength;
  ULONG Flags;
};
static_assert(sizeof(SEC_WINNT_AUTH_IDENTITY_W) == 48);

extern "C" {
SECURITY_STATUS WINAPI AcquireCredentialsHandleW(SEC_WCHAR* principal, SEC_WCHAR* package, ULONG use, void* logonId,
                                                 void* identity, SEC_GET_KEY_FN getKey, void* getKeyArgument,
                                                 PCredHandle credential, PTimeStamp expiry);
SECURITY_STATUS WINAPI FreeCredentialsHandle(PCredHandle credential);
SECURITY_STATUS WINAPI InitializeSecurityContextW(PCredHandle credential, PCtxtHandle context, SEC_WCHAR* targetName,
                                                  ULONG requirements, ULONG reserved1, ULONG dataRepresentation,
                                                  PSecBufferDesc input, ULONG reserved2, PCtxtHandle newContext,
                                                  PSecBufferDesc output, ULONG* attributes, PTimeStamp expiry);
SECURITY_STATUS WINAPI CompleteAuthToken(PCtxtHandle context, PSecBufferDesc token);
SECURITY_STATUS WINAPI DeleteSecurityContext(PCtxtHandle context);
SECURITY_STATUS WINAPI FreeContextBuffer(void* buffer);
SECURITY_STATUS WINAPI QuerySecurityPackageInfoW(SEC_WCHAR* package, PSecPkgInfoW* info);
}

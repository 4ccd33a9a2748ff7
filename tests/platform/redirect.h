// Force-included in the Windows unit tests: calls of the system go to the simulated one, under another name.
// The run-time library needs the real functions, so they cannot be replaced by linking others of the same name.
#pragma once

#ifdef _WIN32

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <winhttp.h>
#include <wincred.h>
#include <dpapi.h>
#include <combaseapi.h>
#ifndef SECURITY_WIN32
#define SECURITY_WIN32
#endif
#include <sspi.h>
// clang-format on

#define KIV_SIMULATED(Function) extern "C" decltype(::Function) Simulated_##Function
KIV_SIMULATED(WinHttpOpen);
KIV_SIMULATED(WinHttpCloseHandle);
KIV_SIMULATED(WinHttpCrackUrl);
KIV_SIMULATED(WinHttpGetIEProxyConfigForCurrentUser);
KIV_SIMULATED(WinHttpGetProxyForUrl);
KIV_SIMULATED(WinHttpConnect);
KIV_SIMULATED(WinHttpOpenRequest);
KIV_SIMULATED(WinHttpSetStatusCallback);
KIV_SIMULATED(WinHttpQueryOption);
KIV_SIMULATED(WinHttpSetOption);
KIV_SIMULATED(WinHttpSetCredentials);
KIV_SIMULATED(WinHttpSendRequest);
KIV_SIMULATED(WinHttpReceiveResponse);
KIV_SIMULATED(WinHttpQueryHeaders);
KIV_SIMULATED(WinHttpQueryAuthSchemes);
KIV_SIMULATED(GetLastError);
KIV_SIMULATED(SetLastError);
KIV_SIMULATED(GlobalFree);
KIV_SIMULATED(LoadLibraryW);
KIV_SIMULATED(GetProcAddress);
KIV_SIMULATED(FreeLibrary);
KIV_SIMULATED(WideCharToMultiByte);
KIV_SIMULATED(MultiByteToWideChar);
KIV_SIMULATED(GetEnvironmentVariableW);
KIV_SIMULATED(CreateEventW);
KIV_SIMULATED(SetEvent);
KIV_SIMULATED(ResetEvent);
KIV_SIMULATED(WaitForSingleObject);
KIV_SIMULATED(CloseHandle);
KIV_SIMULATED(CryptProtectMemory);
KIV_SIMULATED(CryptUnprotectMemory);
KIV_SIMULATED(IdnToAscii);
KIV_SIMULATED(CredUIPromptForWindowsCredentialsW);
KIV_SIMULATED(CredUnPackAuthenticationBufferW);
KIV_SIMULATED(CoTaskMemFree);
KIV_SIMULATED(WinHttpSetTimeouts);
KIV_SIMULATED(GetCurrentThreadId);
KIV_SIMULATED(GetTickCount64);
KIV_SIMULATED(AcquireSRWLockExclusive);
KIV_SIMULATED(AcquireSRWLockShared);
KIV_SIMULATED(ReleaseSRWLockExclusive);
KIV_SIMULATED(ReleaseSRWLockShared);
KIV_SIMULATED(SleepConditionVariableSRW);
KIV_SIMULATED(WakeConditionVariable);
KIV_SIMULATED(WakeAllConditionVariable);
KIV_SIMULATED(TrySubmitThreadpoolCallback);
KIV_SIMULATED(CallbackMayRunLong);
KIV_SIMULATED(CreateThreadpoolWork);
KIV_SIMULATED(SubmitThreadpoolWork);
KIV_SIMULATED(WaitForThreadpoolWorkCallbacks);
KIV_SIMULATED(CloseThreadpoolWork);
KIV_SIMULATED(CreateThreadpoolTimer);
KIV_SIMULATED(SetThreadpoolTimer);
KIV_SIMULATED(WaitForThreadpoolTimerCallbacks);
KIV_SIMULATED(CloseThreadpoolTimer);
KIV_SIMULATED(CreateThreadpoolWait);
KIV_SIMULATED(SetThreadpoolWait);
KIV_SIMULATED(WaitForThreadpoolWaitCallbacks);
KIV_SIMULATED(CloseThreadpoolWait);
KIV_SIMULATED(GetCurrentThread);
KIV_SIMULATED(OpenThreadToken);
KIV_SIMULATED(SetThreadToken);
KIV_SIMULATED(RevertToSelf);

KIV_SIMULATED(WSAStartup);
KIV_SIMULATED(WSACleanup);
KIV_SIMULATED(WSAGetLastError);
KIV_SIMULATED(WSASocketW);
KIV_SIMULATED(WSAEventSelect);
KIV_SIMULATED(WSAEnumNetworkEvents);
KIV_SIMULATED(connect);
KIV_SIMULATED(send);
KIV_SIMULATED(recv);
KIV_SIMULATED(shutdown);
KIV_SIMULATED(closesocket);
KIV_SIMULATED(htons);
KIV_SIMULATED(ntohs);
KIV_SIMULATED(htonl);
KIV_SIMULATED(ntohl);
KIV_SIMULATED(GetAddrInfoW);
KIV_SIMULATED(FreeAddrInfoW);
KIV_SIMULATED(RegOpenCurrentUser);
KIV_SIMULATED(RegOpenKeyExW);
KIV_SIMULATED(RegNotifyChangeKeyValue);
KIV_SIMULATED(RegCloseKey);
KIV_SIMULATED(LoadLibraryExW);
KIV_SIMULATED(GetModuleHandleW);
KIV_SIMULATED(AcquireCredentialsHandleW);
KIV_SIMULATED(FreeCredentialsHandle);
KIV_SIMULATED(InitializeSecurityContextW);
KIV_SIMULATED(CompleteAuthToken);
KIV_SIMULATED(DeleteSecurityContext);
KIV_SIMULATED(FreeContextBuffer);
KIV_SIMULATED(QuerySecurityPackageInfoW);

#undef KIV_SIMULATED

#define WinHttpOpen Simulated_WinHttpOpen
#define WinHttpCloseHandle Simulated_WinHttpCloseHandle
#define WinHttpCrackUrl Simulated_WinHttpCrackUrl
#define WinHttpGetIEProxyConfigForCurrentUser Simulated_WinHttpGetIEProxyConfigForCurrentUser
#define WinHttpGetProxyForUrl Simulated_WinHttpGetProxyForUrl
#define WinHttpConnect Simulated_WinHttpConnect
#define WinHttpOpenRequest Simulated_WinHttpOpenRequest
#define WinHttpSetStatusCallback Simulated_WinHttpSetStatusCallback
#define WinHttpQueryOption Simulated_WinHttpQueryOption
#define WinHttpSetOption Simulated_WinHttpSetOption
#define WinHttpSetCredentials Simulated_WinHttpSetCredentials
#define WinHttpSendRequest Simulated_WinHttpSendRequest
#define WinHttpReceiveResponse Simulated_WinHttpReceiveResponse
#define WinHttpQueryHeaders Simulated_WinHttpQueryHeaders
#define WinHttpQueryAuthSchemes Simulated_WinHttpQueryAuthSchemes
#define GetLastError Simulated_GetLastError
#define SetLastError Simulated_SetLastError
#define GlobalFree Simulated_GlobalFree
#define LoadLibraryW Simulated_LoadLibraryW
#define GetProcAddress Simulated_GetProcAddress
#define FreeLibrary Simulated_FreeLibrary
#define WideCharToMultiByte Simulated_WideCharToMultiByte
#define MultiByteToWideChar Simulated_MultiByteToWideChar
#define GetEnvironmentVariableW Simulated_GetEnvironmentVariableW
#define CreateEventW Simulated_CreateEventW
#define SetEvent Simulated_SetEvent
#define ResetEvent Simulated_ResetEvent
#define WaitForSingleObject Simulated_WaitForSingleObject
#define CloseHandle Simulated_CloseHandle
#define CryptProtectMemory Simulated_CryptProtectMemory
#define CryptUnprotectMemory Simulated_CryptUnprotectMemory
#define IdnToAscii Simulated_IdnToAscii
#define CredUIPromptForWindowsCredentialsW Simulated_CredUIPromptForWindowsCredentialsW
#define CredUnPackAuthenticationBufferW Simulated_CredUnPackAuthenticationBufferW
#define CoTaskMemFree Simulated_CoTaskMemFree
#define WinHttpSetTimeouts Simulated_WinHttpSetTimeouts
#define GetCurrentThreadId Simulated_GetCurrentThreadId
#define GetTickCount64 Simulated_GetTickCount64
#define AcquireSRWLockExclusive Simulated_AcquireSRWLockExclusive
#define AcquireSRWLockShared Simulated_AcquireSRWLockShared
#define ReleaseSRWLockExclusive Simulated_ReleaseSRWLockExclusive
#define ReleaseSRWLockShared Simulated_ReleaseSRWLockShared
#define SleepConditionVariableSRW Simulated_SleepConditionVariableSRW
#define WakeConditionVariable Simulated_WakeConditionVariable
#define WakeAllConditionVariable Simulated_WakeAllConditionVariable
#define TrySubmitThreadpoolCallback Simulated_TrySubmitThreadpoolCallback
#define CallbackMayRunLong Simulated_CallbackMayRunLong
#define CreateThreadpoolWork Simulated_CreateThreadpoolWork
#define SubmitThreadpoolWork Simulated_SubmitThreadpoolWork
#define WaitForThreadpoolWorkCallbacks Simulated_WaitForThreadpoolWorkCallbacks
#define CloseThreadpoolWork Simulated_CloseThreadpoolWork
#define CreateThreadpoolTimer Simulated_CreateThreadpoolTimer
#define SetThreadpoolTimer Simulated_SetThreadpoolTimer
#define WaitForThreadpoolTimerCallbacks Simulated_WaitForThreadpoolTimerCallbacks
#define CloseThreadpoolTimer Simulated_CloseThreadpoolTimer
#define CreateThreadpoolWait Simulated_CreateThreadpoolWait
#define SetThreadpoolWait Simulated_SetThreadpoolWait
#define WaitForThreadpoolWaitCallbacks Simulated_WaitForThreadpoolWaitCallbacks
#define CloseThreadpoolWait Simulated_CloseThreadpoolWait
#define GetCurrentThread Simulated_GetCurrentThread
#define OpenThreadToken Simulated_OpenThreadToken
#define SetThreadToken Simulated_SetThreadToken
#define RevertToSelf Simulated_RevertToSelf

#define WSAStartup Simulated_WSAStartup
#define WSACleanup Simulated_WSACleanup
#define WSAGetLastError Simulated_WSAGetLastError
#define WSASocketW Simulated_WSASocketW
#define WSAEventSelect Simulated_WSAEventSelect
#define WSAEnumNetworkEvents Simulated_WSAEnumNetworkEvents
#define connect Simulated_connect
#define send Simulated_send
#define recv Simulated_recv
#define shutdown Simulated_shutdown
#define closesocket Simulated_closesocket
#define htons Simulated_htons
#define ntohs Simulated_ntohs
#define htonl Simulated_htonl
#define ntohl Simulated_ntohl
#define GetAddrInfoW Simulated_GetAddrInfoW
#define FreeAddrInfoW Simulated_FreeAddrInfoW
#define RegOpenCurrentUser Simulated_RegOpenCurrentUser
#define RegOpenKeyExW Simulated_RegOpenKeyExW
#define RegNotifyChangeKeyValue Simulated_RegNotifyChangeKeyValue
#define RegCloseKey Simulated_RegCloseKey
#define LoadLibraryExW Simulated_LoadLibraryExW
#define GetModuleHandleW Simulated_GetModuleHandleW
#define AcquireCredentialsHandleW Simulated_AcquireCredentialsHandleW
#define FreeCredentialsHandle Simulated_FreeCredentialsHandle
#define InitializeSecurityContextW Simulated_InitializeSecurityContextW
#define CompleteAuthToken Simulated_CompleteAuthToken
#define DeleteSecurityContext Simulated_DeleteSecurityContext
#define FreeContextBuffer Simulated_FreeContextBuffer
#define QuerySecurityPackageInfoW Simulated_QuerySecurityPackageInfoW

#endif

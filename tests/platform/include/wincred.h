// The credential prompt, for builds on other systems; layouts as on Windows.
#pragma once

#include <windows.h>

#define CREDUIWIN_GENERIC 0x1
#define CREDUIWIN_CHECKBOX 0x2
#define CRED_PACK_PROTECTED_CREDENTIALS 0x1

struct CREDUI_INFOW {
  DWORD cbSize;
  HWND hwndParent;
  PCWSTR pszMessageText;
  PCWSTR pszCaptionText;
  HBITMAP hbmBanner;
};
using PCREDUI_INFOW = CREDUI_INFOW*;
static_assert(sizeof(CREDUI_INFOW) == 40);

extern "C" {
DWORD WINAPI CredUIPromptForWindowsCredentialsW(PCREDUI_INFOW info, DWORD authError, ULONG* authPackage,
                                                LPCVOID inBuffer, ULONG inSize, LPVOID* outBuffer, ULONG* outSize,
                                                BOOL* save, DWORD flags);
BOOL WINAPI CredUnPackAuthenticationBufferW(DWORD flags, PVOID buffer, DWORD size, LPWSTR user, DWORD* userSize,
                                            LPWSTR domain, DWORD* domainSize, LPWSTR password, DWORD* passwordSize);
}

/* Stands in for the system's credential prompt, which Wine does not have: answers at once, with the caption as the user
 * name and the message as the password, so that a host sees what it would have been shown. */
#define CREDUIAPI __declspec(dllexport)

#include <string.h>
#include <wchar.h>

#include <windows.h>

#include <objbase.h>
#include <wincred.h>

DWORD WINAPI CredUIPromptForWindowsCredentialsW(PCREDUI_INFOW info, DWORD error, ULONG* package, LPCVOID in,
                                                ULONG in_size, LPVOID* out, ULONG* out_size, WINBOOL* save,
                                                DWORD flags) {
  (void)package, (void)in, (void)in_size, (void)save;
  if (info->cbSize != sizeof *info || error != 0 || flags != 1) return ERROR_INVALID_PARAMETER;
  const size_t user = wcslen(info->pszCaptionText) + 1;
  const size_t password = wcslen(info->pszMessageText) + 1;
  wchar_t* block = CoTaskMemAlloc((user + password) * sizeof *block);
  if (!block) return ERROR_OUTOFMEMORY;
  memcpy(block, info->pszCaptionText, user * sizeof *block);
  memcpy(block + user, info->pszMessageText, password * sizeof *block);
  *out = block;
  *out_size = (ULONG)((user + password) * sizeof *block);
  return ERROR_SUCCESS;
}

WINBOOL WINAPI CredUnPackAuthenticationBufferW(DWORD flags, PVOID block, DWORD size, LPWSTR user_out, DWORD* user_size,
                                               LPWSTR domain, DWORD* domain_size, LPWSTR password_out,
                                               DWORD* password_size) {
  (void)flags, (void)domain, (void)domain_size;
  const wchar_t* user = block;
  const DWORD user_needed = (DWORD)wcslen(user) + 1;
  const DWORD password_needed = size / sizeof *user - user_needed;
  const int fits = *user_size >= user_needed && *password_size >= password_needed;
  *user_size = user_needed;
  *password_size = password_needed;
  if (!fits || !user_out || !password_out) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  memcpy(user_out, user, user_needed * sizeof *user);
  memcpy(password_out, user + user_needed, password_needed * sizeof *user);
  return TRUE;
}

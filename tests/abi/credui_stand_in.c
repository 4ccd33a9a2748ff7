/* Stands in for the system's credential prompt, which Wine does not have: answers at once, with the texts of the
 * environment variables KIV_PROMPT_USER and KIV_PROMPT_PASSWORD, or else with the caption as the user name and the
 * message as the password, so that an application sees what it would have been shown. */
#define CREDUIAPI __declspec(dllexport)

#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <windows.h>

#include <objbase.h>
#include <wincred.h>

static const wchar_t* answer(const wchar_t* variable, const wchar_t* otherwise) {
  const wchar_t* text = _wgetenv(variable);
  return text ? text : otherwise;
}

DWORD WINAPI CredUIPromptForWindowsCredentialsW(PCREDUI_INFOW info, DWORD error, ULONG* package, LPCVOID in,
                                                ULONG in_size, LPVOID* out, ULONG* out_size, WINBOOL* save,
                                                DWORD flags) {
  (void)package, (void)in, (void)in_size, (void)save;
  if (info->cbSize != sizeof *info || error != 0 || flags != 1) return ERROR_INVALID_PARAMETER;
  const wchar_t* user_text = answer(L"KIV_PROMPT_USER", info->pszCaptionText);
  const wchar_t* password_text = answer(L"KIV_PROMPT_PASSWORD", info->pszMessageText);
  const size_t user = wcslen(user_text) + 1;
  const size_t password = wcslen(password_text) + 1;
  wchar_t* block = CoTaskMemAlloc((user + password) * sizeof *block);
  if (!block) return ERROR_OUTOFMEMORY;
  memcpy(block, user_text, user * sizeof *block);
  memcpy(block + user, password_text, password * sizeof *block);
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

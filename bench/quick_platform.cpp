// A platform that answers at once and keeps no record, so that a benchmark measures the library and not its simulation.
// Only what a resolution, an address and a credential ask for.
#include "quick_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "support/platform.h"

namespace kiv::bench {
namespace {

QuickPlatform current;
thread_local DWORD lastError = ERROR_SUCCESS;

LPWSTR handedOut(const std::wstring& text) {
  auto* const block = static_cast<LPWSTR>(std::malloc((text.size() + 1) * sizeof(wchar_t)));
  std::wmemcpy(block, text.c_str(), text.size() + 1);
  return block;
}

void transform(LPVOID data, DWORD size) {
  if (!current.protectsMemory) return;
  auto* const bytes = static_cast<BYTE*>(data);
  for (DWORD i = 0; i < size; ++i) bytes[i] ^= 0x5A;
}

template <class Result>
Result failed(DWORD error) {
  lastError = error;
  return Result();
}

}  // namespace

QuickPlatform& platform() { return current; }

}  // namespace kiv::bench

using namespace kiv::bench;

extern "C" {

DWORD WINAPI GetLastError() { return lastError; }
void WINAPI SetLastError(DWORD code) { lastError = code; }
HGLOBAL WINAPI GlobalFree(HGLOBAL block) {
  std::free(block);
  return nullptr;
}
HMODULE WINAPI LoadLibraryW(LPCWSTR) { return failed<HMODULE>(ERROR_MOD_NOT_FOUND); }
FARPROC WINAPI GetProcAddress(HMODULE, LPCSTR) { return failed<FARPROC>(ERROR_PROC_NOT_FOUND); }
BOOL WINAPI FreeLibrary(HMODULE) { return TRUE; }
int WINAPI WideCharToMultiByte(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) { return 0; }
int WINAPI MultiByteToWideChar(UINT, DWORD, LPCCH, int, LPWSTR, int) { return 0; }

int WINAPI IdnToAscii(DWORD, LPCWSTR unicode, int length, LPWSTR ascii, int size) {
  if (length > size) return failed<int>(ERROR_INVALID_NAME);
  std::copy_n(unicode, length, ascii);
  return length;
}

BOOL WINAPI CryptProtectMemory(LPVOID data, DWORD size, DWORD) {
  transform(data, size);
  return TRUE;
}
BOOL WINAPI CryptUnprotectMemory(LPVOID data, DWORD size, DWORD) {
  transform(data, size);
  return TRUE;
}

HINTERNET WINAPI WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) { return &current; }
BOOL WINAPI WinHttpCloseHandle(HINTERNET) { return TRUE; }
BOOL WINAPI WinHttpCrackUrl(LPCWSTR, DWORD, DWORD, LPURL_COMPONENTS components) {
  constexpr std::wstring_view kHost = L"www.target.example";
  kHost.copy(components->lpszHostName, kHost.size());
  components->lpszHostName[kHost.size()] = L'\0';
  components->dwHostNameLength = kHost.size();
  return TRUE;
}
BOOL WINAPI WinHttpGetIEProxyConfigForCurrentUser(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* config) {
  *config = {FALSE, nullptr, handedOut(current.manualList), handedOut(current.bypassList)};
  return TRUE;
}
BOOL WINAPI WinHttpGetProxyForUrl(HINTERNET, LPCWSTR, WINHTTP_AUTOPROXY_OPTIONS*, WINHTTP_PROXY_INFO*) {
  return failed<BOOL>(ERROR_WINHTTP_AUTODETECTION_FAILED);
}
}

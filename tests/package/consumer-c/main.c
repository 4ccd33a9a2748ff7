/* A program that has nothing of kiv but the package: prints what a proxy's text means, and the version of the kiv.dll
 * that it runs with, as that says it of itself. */
#include <stdio.h>
#include <wchar.h>

#include <windows.h>

#include <kiv/kiv.h>

static void print(void* context, const wchar_t* text) { wprintf(L"%ls %ls\n", (const wchar_t*)context, text); }

static int show_proxy(const wchar_t* text) {
  KivProxyConfig* proxy = KivProxyConfig_Parse(text, NULL);
  const int valid = KivProxyConfig_IsValid(proxy);
  KivProxyConfig_ToString(proxy, 1, 0, L"proxy", print);
  KivProxyConfig_Destruct(proxy);
  return valid ? 0 : 1;
}

/* One of the texts in the version resource; its language is English, its characters are UTF-16. */
static void show_text(const void* resource, const wchar_t* name) {
  wchar_t path[64];
  swprintf(path, 64, L"\\StringFileInfo\\040904b0\\%ls", name);
  void* text = NULL;
  UINT size = 0;
  if (VerQueryValueW(resource, path, &text, &size)) wprintf(L"%ls %ls\n", name, (const wchar_t*)text);
}

static int show_version(const wchar_t* file) {
  static unsigned char resource[8192];
  VS_FIXEDFILEINFO* fixed = NULL;
  UINT size = 0;
  const DWORD needed = GetFileVersionInfoSizeW(file, NULL);
  if (needed == 0 || needed > sizeof resource || !GetFileVersionInfoW(file, 0, sizeof resource, resource) ||
      !VerQueryValueW(resource, L"\\", (void**)&fixed, &size)) {
    fwprintf(stderr, L"%ls has no version\n", file);
    return 1;
  }
  wprintf(L"file %u.%u.%u product %u.%u.%u\n", HIWORD(fixed->dwFileVersionMS), LOWORD(fixed->dwFileVersionMS),
          HIWORD(fixed->dwFileVersionLS), HIWORD(fixed->dwProductVersionMS), LOWORD(fixed->dwProductVersionMS),
          HIWORD(fixed->dwProductVersionLS));
  show_text(resource, L"CompanyName");
  show_text(resource, L"FileDescription");
  show_text(resource, L"OriginalFilename");
  return 0;
}

int wmain(int count, wchar_t** arguments) {
  if (count != 3) {
    fwprintf(stderr, L"usage: consumer_c PROXY FILE\n");
    return 64;
  }
  return show_proxy(arguments[1]) || show_version(arguments[2]);
}

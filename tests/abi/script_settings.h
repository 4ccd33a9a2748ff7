/* Proxy settings for one process of the tests: a PAC script. Link with advapi32. */
#ifndef KIV_TESTS_SCRIPT_SETTINGS_H
#define KIV_TESTS_SCRIPT_SETTINGS_H

#include <stdio.h>
#include <wchar.h>

#include <windows.h>

/* Gives this process a registry of the user's own, which ends with Wine. */
static int use_registry_of_its_own(void) {
  wchar_t name[64];
  HKEY user = NULL;
  swprintf(name, 64, L"Volatile Environment\\kiv-test-%lu", (unsigned long)GetCurrentProcessId());
  return RegCreateKeyExW(HKEY_CURRENT_USER, name, 0, NULL, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, NULL, &user, NULL) ==
             ERROR_SUCCESS &&
         RegOverridePredefKey(HKEY_CURRENT_USER, user) == ERROR_SUCCESS;
}

/* The script at a port of loopback. Another number is another script, which nobody has read before. */
static int use_script_at(unsigned port, unsigned number) {
  static int redirected;
  struct {
    DWORD version, counter, flags, lengths_of_lists[2], length;
    char url[64];
  } settings = {.version = 0x46, .flags = 1 | 4};
  HKEY connections = NULL;
  settings.length = (DWORD)snprintf(settings.url, sizeof settings.url, "http://127.0.0.1:%u/proxy%u.pac", port, number);
  if (!redirected) redirected = use_registry_of_its_own();
  return redirected &&
         RegCreateKeyExW(HKEY_CURRENT_USER,
                         L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections", 0, NULL,
                         REG_OPTION_VOLATILE, KEY_ALL_ACCESS, NULL, &connections, NULL) == ERROR_SUCCESS &&
         RegSetValueExW(connections, L"DefaultConnectionSettings", 0, REG_BINARY, (const BYTE*)&settings,
                        sizeof settings) == ERROR_SUCCESS &&
         RegCloseKey(connections) == ERROR_SUCCESS;
}

#endif

/* Libraries that somebody put beside a program under the names of the system's: run from a folder that has such ones,
 * by a system that would take them.
 *
 *   planted_libraries_test [--without-prompts]    where the system's own prompt would wait for somebody
 */
#include <string.h>

#include <windows.h>

#include "check.h"
#include "kiv/kiv.h"

/* Whether the module is a file of this folder. */
static int is_from(const char* folder, HMODULE module) {
  char path[MAX_PATH] = "";
  const size_t length = strlen(folder);
  return module != NULL && GetModuleFileNameA(module, path, MAX_PATH) > length &&
         _strnicmp(path, folder, length) == 0 && strchr(path + length + 1, '\\') == NULL;
}

int main(int count, char** arguments) {
  const int prompts = count < 2 || strcmp(arguments[1], "--without-prompts") != 0;
  char system[MAX_PATH] = "", program[MAX_PATH] = "";
  GetSystemDirectoryA(system, MAX_PATH);
  GetModuleFileNameA(NULL, program, MAX_PATH);
  *strrchr(program, '\\') = '\0';

  if (prompts) {
    KivCred_Destruct(KivDialogAuthUi_ProxyAuthUi(L"gate:8080", L"", NULL));
    CHECK(is_from(system, GetModuleHandleA("credui.dll")));
  }
  KivCred* cred = KivCred_Create(L"user", L"password");
  CHECK(cred != NULL && !KivCred_IsNone(cred));
  CHECK(is_from(system, GetModuleHandleA("crypt32.dll")));
  KivCred_Destruct(cred);

  /* By its bare name such a library is loaded from here. */
  CHECK(is_from(program, LoadLibraryA("cryptui.dll")));
  return report_checks();
}

/* On a system that lacks libraries which are delay-loaded: run with these disabled. */
#include <windows.h>

#include "check.h"
#include "kiv/kiv.h"

static int is_none(KivCred* cred) {
  const int none = cred != NULL && KivCred_IsNone(cred);
  KivCred_Destruct(cred);
  return none;
}

int main(void) {
  CHECK(GetModuleHandleA("credui.dll") == NULL);
  CHECK(GetModuleHandleA("crypt32.dll") == NULL);
  CHECK(is_none(KivDialogAuthUi_ProxyAuthUi(L"gate:8080", L"", NULL)));
  CHECK(is_none(KivDialogAuthUi_ServerAuthUi(L"http://server/", L"why", NULL)));
  CHECK(is_none(KivCred_Create(L"user", L"password")));
  CHECK(GetModuleHandleA("credui.dll") == NULL);
  CHECK(GetModuleHandleA("crypt32.dll") == NULL);
  return report_checks();
}

// The C functions of the credential prompts.
#include "kiv/dialog_auth_ui.h"
#include "support/border.h"
#include "ui/auth_prompt.h"

namespace {

using namespace kiv::impl;
using namespace kiv::support;

KivCred* prompt(const PromptTexts& texts, const wchar_t* target, const wchar_t* detail, void* parent) {
  if (!target) return nullptr;
  return guarded<KivCred*>(nullptr, [&] {
    return newHandle<KivCred>(promptForCredentials(texts, target, detail, static_cast<HWND>(parent)));
  });
}

}  // namespace

extern "C" {

KivCred* KivDialogAuthUi_ServerAuthUi(const wchar_t* target, const wchar_t* detail, void* parent) {
  return prompt(kServerPrompt, target, detail, parent);
}

KivCred* KivDialogAuthUi_ProxyAuthUi(const wchar_t* target, const wchar_t* detail, void* parent) {
  return prompt(kProxyPrompt, target, detail, parent);
}

}  // extern "C"

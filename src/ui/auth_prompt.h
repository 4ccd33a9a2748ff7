// The system's credential prompt.
#pragma once

#include <optional>
#include <string_view>

#include "config/cred.h"
#include "support/platform.h"

namespace kiv::impl {

// What one of the two prompts says. "%ls" in the message stands for what asks.
struct PromptTexts {
  const wchar_t* caption;
  const wchar_t* message;
};

extern const PromptTexts kServerPrompt;
extern const PromptTexts kProxyPrompt;

// Shows the prompt and waits for the user. Nothing if the user cancelled or anything failed. Whatever held the password
// in clear is wiped before the call returns.
std::optional<Cred> promptForCredentials(const PromptTexts& texts, const wchar_t* target, const wchar_t* detail,
                                         HWND parent);

}  // namespace kiv::impl

// Which programs can log on to a proxy that answers 407, and how.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::tool {

// What git and curl can do with the schemes that a proxy offers. None: nothing more than without a scheme.
enum class LogOn { None, Basic, Digest, Ntlm, Negotiate };

// The best of the schemes: one that needs no password, if there is one.
LogOn bestLogOn(const std::vector<std::wstring>& schemes);

// The options with which curl logs on: as the user, or, with a password, as somebody whom it asks for it.
std::wstring_view curlOptionsFor(LogOn logOn);

// Whether git logs on as the user if the proxy's URL has an empty user name.
bool logsOnAsUser(LogOn logOn);

// What each of the schemes means to programs.
std::vector<std::wstring> logOnRemarks(const std::wstring& proxy, const std::vector<std::wstring>& schemes);

}  // namespace kiv::tool

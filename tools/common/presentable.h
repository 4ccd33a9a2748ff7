// Text as it may be shown to people: without passwords, and without characters that steer a console or a viewer.
#pragma once

#include <string>
#include <string_view>

namespace kiv::tool {

// Line ends become "\n", other control characters the replacement character, and in each "user:password@" the password
// becomes asterisks, wherever the text came from. A message of NTLM or Negotiate becomes "(removed)".
std::wstring presentable(std::wstring_view text);

}  // namespace kiv::tool

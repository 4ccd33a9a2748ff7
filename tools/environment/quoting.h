// Texts as values for the shells of Windows, exactly as they are: nothing in them is read as a part of a command.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv::tool {

// Each returns nothing for a text that cannot be quoted. That are all with characters that cannot be seen, such as line
// ends.

// As in set "NAME=value" at the prompt of cmd, where nothing escapes "%".
std::optional<std::wstring> quotedForCmd(std::wstring_view text);
// As in set "NAME=value" in a batch file. Only ASCII: cmd reads the file in its console's code page.
std::optional<std::wstring> quotedForBatch(std::wstring_view text);
// In single quotes, as all that follow.
std::optional<std::wstring> quotedForPowerShell(std::wstring_view text);
std::optional<std::wstring> quotedForBash(std::wstring_view text);
// In double quotes, for cmd, PowerShell and bash alike.
std::optional<std::wstring> quotedForAllShells(std::wstring_view text);
// The same for commands that are batch files, which read their arguments once more.
std::optional<std::wstring> quotedForScripts(std::wstring_view text);

}  // namespace kiv::tool

// kiv-resolve --completion powershell: a script that completes command lines of kiv-resolve.
#include <array>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"

namespace kiv::tool {
namespace {

constexpr const wchar_t* kBegin =
    LR"(# Completes command lines of kiv-resolve in PowerShell 5 and later.
# Printed by: kiv-resolve --completion powershell
Register-ArgumentCompleter -Native -CommandName 'kiv-resolve' -ScriptBlock {
    param($wordToComplete, $commandAst, $cursorPosition)
    # The options of each command: name, type of the value, help.
    $commands = @{
)";

// A value is completed if its type is a choice, such as head|get. In env:NAME the capitals stand for what the user
// types.
constexpr const wchar_t* kEnd =
    LR"(    }
    $before = @($commandAst.CommandElements | Select-Object -Skip 1 |
        Where-Object { $_.Extent.EndOffset -lt $cursorPosition } | ForEach-Object { $_.Extent.Text })
    # What follows -- belongs to another program.
    if ($before -contains '--') { return }
    $command = 'resolve'
    if ($before.Count -gt 0 -and $commands.ContainsKey($before[0])) { $command = $before[0] }
    $options = @($commands[$command].Trim() -split '\r?\n' | ForEach-Object {
        $name, $type, $help = $_ -split '\t'
        [pscustomobject]@{ Text = $name; Type = $type; Help = $help }
    })
    $valued = @($options | Where-Object { $before.Count -gt 0 -and $_.Text -ceq $before[-1] -and $_.Type })
    if ($valued.Count -gt 0) {
        $type = $valued[0].Type
        if (-not $type.Contains('|')) { return }
        $found = @($type -split '\|' | ForEach-Object { $_ -creplace '[A-Z].*', '' } | Where-Object { $_ } |
            ForEach-Object { [pscustomobject]@{ Text = $_; Help = $valued[0].Help } })
    } else {
        $found = $options
        if ($before.Count -eq 0) {
            $names = $commands.Keys | Sort-Object
            $found = @($names | ForEach-Object { [pscustomobject]@{ Text = $_; Help = "kiv-resolve $_" } }) + $options
        }
    }
    $found | Where-Object { $_.Text.StartsWith($wordToComplete, 'Ordinal') } | ForEach-Object {
        [System.Management.Automation.CompletionResult]::new($_.Text, $_.Text, 'ParameterValue', $_.Help)
    }
}
)";

}  // namespace

int completionCommand(ArgumentList arguments, std::span<const Command> commands) {
  if (arguments.size() != 1 || std::wstring_view(arguments.front()) != L"powershell") {
    complain(L"--completion must be followed by powershell");
    return kBadUsage;
  }
  print(Stream::Output, kBegin);
  for (const Command& command : commands) {
    print(Stream::Output, L"'" + std::wstring(command.name) + L"' = @'\n");
    constexpr std::array<const wchar_t*, 1> kList = {kListOptions.data()};
    command.run(kList);
    print(Stream::Output, L"'@\n");
  }
  print(Stream::Output, kEnd);
  return kDone;
}

}  // namespace kiv::tool

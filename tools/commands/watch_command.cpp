// kiv-resolve watch URL: resolves again at each change of settings or network.
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_file.h"
#include "resolve/request_options.h"
#include "resolve/resolution_run.h"
#include "watch/change_notifications.h"
#include "watch/interruption.h"
#include "watch/observation.h"

namespace kiv::tool {
namespace {

constexpr int kNoNotifications = 2;
constexpr unsigned kLongestInterval = 86'400;

// The options as written.
struct Written {
  Value url;
  Value every;
  Value trace;
  bool json = false;
};

// Nothing for a text that is no number of seconds up to a day.
std::optional<DWORD> secondsIn(std::wstring_view text) {
  DWORD seconds = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9' || seconds > kLongestInterval) return std::nullopt;
    seconds = seconds * 10 + static_cast<DWORD>(c - L'0');
  }
  return seconds >= 1 && seconds <= kLongestInterval ? std::optional(seconds) : std::nullopt;
}

std::string mustBeInterval(std::wstring_view text) {
  return secondsIn(text) ? std::string() : "must be a number of seconds from 1 to 86400";
}

constexpr ValueOption<Written> kTargets[] = {
    {"URL", &Written::url, "", mustBeUrl, "The http or https URL to reach"},
};
constexpr ValueOption<Written> kIntervals[] = {
    {"--every", &Written::every, "SECONDS", mustBeInterval, "Resolve also when nothing has changed for so long"},
};
constexpr Flag<Written> kFlags[] = {
    {"--json", &Written::json, "Print a JSON object per line"},
};
constexpr ValueOption<Written> kFiles[] = {
    {"--trace", &Written::trace, "FILE", mustNameAFile, "Write the log to a file, as JSON lines"},
};

constexpr Refused kRefused[] = {
    {"--report", "watch has no end to report; kiv-resolve URL --report writes a report"},
};

enum class Wake : std::uint8_t { Interrupted, Notified, Elapsed };

Wake await(const Interruption& interruption, const ChangeNotifications& changes, DWORD patience) {
  const std::array<HANDLE, 2> events = {interruption.event(), changes.event()};
  switch (WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, patience)) {
    case WAIT_OBJECT_0 + 1:
      return Wake::Notified;
    case WAIT_TIMEOUT:
      return Wake::Elapsed;
    default:
      return Wake::Interrupted;
  }
}

int failWith(const std::wstring& problem, int code) {
  complain(problem);
  return code;
}

int run(const Written& written, const RequestOptions& options) {
  std::optional<OutputFile> trace;
  if (written.trace) trace.emplace(std::wstring(*written.trace));
  if (trace && !trace->problem().empty()) return failWith(trace->problem(), kFileNotWritten);
  const ChangeNotifications changes;
  if (!changes.problem().empty()) return failWith(changes.problem(), kNoNotifications);
  const Interruption interruption;
  const DWORD patience = written.every ? *secondsIn(*written.every) * 1'000 : INFINITE;
  const Target target = readTarget(*written.url);
  Display display(Detail::Nothing);
  Watch watch;
  for (Wake wake = Wake::Elapsed; wake != Wake::Interrupted; wake = await(interruption, changes, patience)) {
    const Resolution resolution = resolve(options, Task::Resolve, target, display, trace ? &*trace : nullptr);
    const Observation observation = watch.observe(resolution, wake == Wake::Notified);
    const std::wstring line = written.json ? toWide(observationJson(observation)) : observationLine(observation);
    // Nobody would ever end a watch whose reader is gone.
    if (!print(Stream::Output, line)) return failWith(L"standard output cannot be written", kFileNotWritten);
  }
  if (!trace || trace->problem().empty()) return kDone;
  return failWith(trace->problem(), kFileNotWritten);
}

}  // namespace

int watchCommand(ArgumentList arguments) {
  Written written;
  WrittenRequest request;
  CommandLine commandLine("kiv-resolve watch",
                          "Resolves a URL again at each change of settings or network, and prints a line each time.");
  commandLine.add(kTargets, written);
  addRequestOptions(commandLine, request);
  addRedaction(commandLine, request);
  commandLine.add(kIntervals, written);
  commandLine.add(kFlags, written);
  commandLine.add(kFiles, written);
  commandLine.refuse(kRefused);
  commandLine.footer(
      "Each line has the time (UTC), why the URL was resolved (start, settings, network,\n"
      "time), the outcome, and what differs from the line before: how long the former\n"
      "outcome lasted, or since when it is the same. Ctrl-C ends.\n"
      "A proxy or server that fails or recovers is no change of this computer: --every\n"
      "finds that out. Each resolution sends test requests to the URL.\n"
      "kiv-session.dll, which notices the changes, must lie beside kiv-resolve.exe.\n"
      "Exit codes: 0 ended by Ctrl-C, 2 changes cannot be noticed, 64 wrong usage,\n"
      "            71 out of resources, 74 the output could not be written.");
  if (const auto exit = commandLine.parse(arguments)) return leave(*exit);
  const auto options = readRequestOptions(commandLine, request);
  if (!options) return kBadUsage;
  return run(written, *options);
}

}  // namespace kiv::tool

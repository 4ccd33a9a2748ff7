// The report that --report writes after resolutions: what they found, and what this machine's settings say.
#include "commands/resolution_report.h"

#include <algorithm>
#include <utility>

#include "resolve/report.h"
#include "resolve/resolution_probe.h"
#include "sources/redacted.h"
#include "sources/sources.h"
#include "sources/sources_sheets.h"

namespace kiv::tool {
namespace {

// The one that works, or all of the first resolution that tested any: where nothing was tested, no proxy is to be asked
// for its time.
std::vector<Candidate> candidatesToAsk(const std::vector<Resolution>& resolutions) {
  for (const Resolution& resolution : resolutions) {
    if (const auto winner = resolution.winner()) return {resolution.candidates[*winner]};
    std::vector<Candidate> tested = resolution.candidates;
    std::erase_if(tested, [](const Candidate& candidate) { return candidate.requests.empty(); });
    if (!tested.empty()) return tested;
  }
  return {};
}

}  // namespace

void writeReport(OutputFiles& files, const RequestOptions& options, std::vector<Resolution> resolutions) {
  if (!files.report()) return;
  findInspection(resolutions);
  Sources sources = readSources(candidatesToAsk(resolutions), TimeLimits(options.maxTime, options.attemptTime));
  if (options.redaction) sources = redacted(std::move(sources), *options.redaction);
  files.report()->write(
      reportFor(files.report()->path(), resolutions, sourcesSheets(sources), options.redaction.get()));
}

}  // namespace kiv::tool

// kiv-resolve: diagnoses how the current user reaches a URL, with kiv.dll.
#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "console.h"
#include "html_report.h"
#include "json_document.h"
#include "options.h"
#include "resolution_run.h"
#include "table.h"
#include "wording.h"

namespace {

using namespace kiv::tool;

constexpr int kFound = 0;
constexpr int kNoneFound = 2;
constexpr int kOutOfResources = 71;
constexpr int kFileNotWritten = 74;

void complain(const std::wstring& problem) { print(Stream::Error, L"kiv-resolve: " + problem + L"\n"); }

// With several URLs each line of the output begins with its URL.
std::wstring underUrl(const Resolution& resolution, const std::wstring& lines) {
  std::wstring text;
  for (std::size_t at = 0; at < lines.size();) {
    const std::size_t end = lines.find(L'\n', at) + 1;
    text += resolution.url + L'\t' + lines.substr(at, end - at);
    at = end;
  }
  return text;
}

std::wstring outputOf(const Options& options, const Resolution& resolution) {
  if (options.task == Task::ShowSettings) return settingsText(resolution);
  const std::wstring lines =
      options.task == Task::ListCandidates ? candidatesText(resolution) : resolution.outcome.text + L"\n";
  return options.targetsFromInput ? underUrl(resolution, lines) : lines;
}

int exitCodeOf(const Outcome& outcome) {
  return outcome.kind == OutcomeKind::None || outcome.kind == OutcomeKind::NotCarriedOut ? kNoneFound : kFound;
}

// Creates the files before the first resolution, so that a wrong file name is reported immediately.
class Files {
 public:
  explicit Files(const Options& options) {
    if (!options.traceFile.empty()) trace_.emplace(options.traceFile);
    if (!options.reportFile.empty()) report_.emplace(options.reportFile);
  }

  OutputFile* trace() { return trace_ ? &*trace_ : nullptr; }
  OutputFile* report() { return report_ ? &*report_ : nullptr; }

  // Whether all files could be written; complains if not.
  bool check() {
    bool good = true;
    for (const OutputFile* file : {trace(), report()}) {
      if (!file || file->problem().empty()) continue;
      complain(file->problem());
      good = false;
    }
    return good;
  }

 private:
  std::optional<OutputFile> trace_;
  std::optional<OutputFile> report_;
};

int run(const Options& options) {
  Files files(options);
  if (!files.check()) return kFileNotWritten;
  Display display(options.detail);
  std::vector<Resolution> resolutions;
  int worst = kFound;
  for (const Target& target : options.targets) {
    resolutions.push_back(ResolutionRun(options, target, display, files.trace()).resolve());
    const Resolution& resolution = resolutions.back();
    worst = std::max(worst, exitCodeOf(resolution.outcome));
    if (resolution.outcome.kind == OutcomeKind::NotCarriedOut) complain(kNotCompleted);
    if (!options.json) print(Stream::Output, outputOf(options, resolution));
  }
  if (options.json) print(Stream::Output, toWide(jsonDocument(options.task, resolutions)));
  if (files.report()) files.report()->write(htmlReport(resolutions));
  return files.check() ? worst : kFileNotWritten;
}

}  // namespace

int wmain(int count, wchar_t** arguments) try {
  const auto parsed = parseCommandLine({arguments + std::min(count, 1), arguments + count});
  if (const auto* const exit = std::get_if<Exit>(&parsed)) {
    print(exit->code == 0 ? Stream::Output : Stream::Error, toWide(exit->text));
    return exit->code;
  }
  return run(std::get<Options>(parsed));
} catch (const std::exception& failure) {
  complain(L"cannot continue: " + toWide(failure.what()));
  return kOutOfResources;
}

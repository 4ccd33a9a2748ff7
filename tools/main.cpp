// kiv-resolve: finds how the current user gets out to a URL, with kiv.dll, and shows why.
#include <windows.h>

#include <algorithm>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "console.h"
#include "host.h"
#include "html_report.h"
#include "json_document.h"
#include "options.h"
#include "table.h"

namespace {

using namespace kiv::tool;

constexpr int kFound = 0;
constexpr int kNoneFound = 2;
constexpr int kFileNotWritten = 74;

void complain(const std::wstring& problem) { print(Stream::Error, L"kiv-resolve: " + problem + L"\n"); }

// With several URLs each line of the answer says which one it is about.
std::wstring underUrl(const Resolution& resolution, const std::wstring& lines) {
  std::wstring text;
  for (std::size_t at = 0; at < lines.size();) {
    const std::size_t end = lines.find(L'\n', at) + 1;
    text += resolution.url + L'\t' + lines.substr(at, end - at);
    at = end;
  }
  return text;
}

std::wstring answerOf(const Options& options, const Resolution& resolution) {
  if (options.task == Task::ShowSettings) return settingsText(resolution);
  const std::wstring lines =
      options.task == Task::ListCandidates ? candidatesText(resolution) : resolution.outcome.text + L"\n";
  return options.targetsFromInput ? underUrl(resolution, lines) : lines;
}

int exitCodeOf(const Outcome& outcome) {
  return outcome.kind == OutcomeKind::None || outcome.kind == OutcomeKind::NotCarriedOut ? kNoneFound : kFound;
}

// Files are created before anything is asked: whoever wants a report shall not learn at the end that there is none.
class Files {
 public:
  explicit Files(const Options& options) {
    if (!options.traceFile.empty()) trace_.emplace(options.traceFile);
    if (!options.reportFile.empty()) report_.emplace(options.reportFile);
  }

  OutputFile* trace() { return trace_ ? &*trace_ : nullptr; }
  OutputFile* report() { return report_ ? &*report_ : nullptr; }

  // Whether all is well; complains if not.
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
    resolutions.push_back(Host(options, target, display, files.trace()).resolve());
    const Resolution& resolution = resolutions.back();
    worst = std::max(worst, exitCodeOf(resolution.outcome));
    if (resolution.outcome.kind == OutcomeKind::NotCarriedOut) complain(L"the resolution could not be carried out");
    if (!options.json) print(Stream::Output, answerOf(options, resolution));
  }
  if (options.json) print(Stream::Output, toWide(jsonDocument(options.task, resolutions)));
  if (files.report()) files.report()->write(htmlReport(resolutions));
  return files.check() ? worst : kFileNotWritten;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  std::vector<std::string> texts;
  for (int i = 1; i < count; ++i) texts.push_back(toUtf8(arguments[i]));
  const auto parsed = parseCommandLine(std::move(texts));
  if (const auto* const exit = std::get_if<Exit>(&parsed)) {
    print(exit->code == 0 ? Stream::Output : Stream::Error, toWide(exit->text));
    return exit->code;
  }
  return run(std::get<Options>(parsed));
}

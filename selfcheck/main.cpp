// kiv-selfcheck: checks on this Windows what kiv.dll and kiv-session.dll promise, with servers of its own on loopback.
#include <algorithm>
#include <exception>
#include <optional>
#include <stdexcept>
#include <variant>

#include "checks/checks.h"
#include "common/command_line.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/output_file.h"
#include "common/system_text.h"
#include "compare/document_file.h"
#include "ground/ground.h"
#include "loop/system_error.h"
#include "results/baseline.h"
#include "results/json.h"
#include "results/page.h"
#include "results/system.h"
#include "results/table.h"

namespace selfcheck {
namespace {

using namespace kiv::tool;

constexpr int kNotAsExpected = 1;
constexpr std::wstring_view kToOutput = L"-";

struct Written {
  Value json;
  Value report;
  Value baseline;
  Value only;
  bool list = false;
};

std::string mustBeHtml(std::wstring_view text) {
  constexpr std::wstring_view kEnd = L".html";
  return text.size() > kEnd.size() && text.ends_with(kEnd) ? "" : "must name a file that ends with .html";
}

constexpr ValueOption<Written> kOptions[] = {
    {"--json", &Written::json, "FILE", mustNameAFile, "Write the results to a file, as JSON; - prints nothing else"},
    {"--report", &Written::report, "FILE", mustBeHtml, "Write the results to a page: FILE.html"},
    {"--baseline", &Written::baseline, "FILE", mustNameAFile, "Compare with earlier results, as --json wrote them"},
    {"--only", &Written::only, "NAME", anything, "Run one check"},
};
constexpr Flag<Written> kFlags[] = {
    {"--list", &Written::list, "Print the names of the checks; run none"},
};

void complain(const std::wstring& problem) { print(Stream::Error, L"kiv-selfcheck: " + problem + L"\n"); }

std::vector<std::string_view> namesOf(const std::vector<Group>& groups) {
  std::vector<std::string_view> names;
  for (const Group& group : groups) {
    for (const Check& check : group.checks) names.push_back(check.name);
  }
  return names;
}

int list(const std::vector<Group>& groups) {
  std::string text;
  for (const std::string_view name : namesOf(groups)) text.append(name).append("\n");
  print(Stream::Output, toWide(text));
  return kDone;
}

// A check that cannot go on has found something too.
Finding found(const Check& check, Ground& ground) {
  ground.forget();
  try {
    return check.run(ground);
  } catch (const kiv::session::SystemError& error) {
    return {Verdict::Fail, "The check could not be carried out: " + toUtf8(systemText(error.code)) + "."};
  } catch (const std::exception& failure) {
    return {Verdict::Fail, std::string("The check could not be carried out: ") + failure.what() + "."};
  }
}

// Creates a file, so that a wrong name is reported before the checks run.
std::optional<OutputFile> created(const Value& name) {
  if (!name || *name == kToOutput) return std::nullopt;
  return std::optional<OutputFile>(std::in_place, std::wstring(*name));
}

// False, with a complaint, if the file cannot be written.
bool isGood(const std::optional<OutputFile>& file) {
  if (!file || file->problem().empty()) return true;
  complain(file->problem());
  return false;
}

class Run {
 public:
  Run(const Written& written, std::optional<Baseline> baseline)
      : written_(written),
        baseline_(std::move(baseline)),
        stream_(written.json == kToOutput ? Stream::Error : Stream::Output),
        json_(created(written.json)),
        report_(created(written.report)) {}

  int operator()(const std::vector<Group>& groups) {
    if (!filesAreGood()) return kFileNotWritten;
    runAll(groups);
    if (baseline_ && !written_.only) results_.notChecked = baseline_->missingIn(results_);
    show(summaryText(results_));
    if (written_.json == kToOutput) print(Stream::Output, toWide(jsonText(results_)));
    if (json_) json_->write(jsonText(results_));
    if (report_) report_->write(pageText(results_));
    if (!filesAreGood()) return kFileNotWritten;
    return isAsExpected(results_) ? kDone : kNotAsExpected;
  }

 private:
  void show(const std::string& text) { print(stream_, toWide(text)); }

  bool filesAreGood() const { return isGood(json_) && isGood(report_); }

  // Shows each result when it is there.
  void runAll(const std::vector<Group>& groups) {
    Ground ground;
    for (const Group& group : groups) {
      ResultGroup done{group.title, {}};
      for (const Check& check : group.checks) {
        if (written_.only && toUtf8(*written_.only) != check.name) continue;
        if (done.results.empty()) show(titleText(group.title));
        const Finding finding = found(check, ground);
        done.results.push_back(
            {check.name, check.question, finding, baseline_ ? baseline_->of(check.name) : std::nullopt});
        show(lineText(done.results.back(), results_.compared));
      }
      if (!done.results.empty()) results_.groups.push_back(std::move(done));
    }
  }

  const Written& written_;
  std::optional<Baseline> baseline_;
  Stream stream_;  // of the table
  std::optional<OutputFile> json_;
  std::optional<OutputFile> report_;
  Results results_{windowsVersion(), wineVersion(), {}, baseline_.has_value(), {}};
};

// Nothing without the option. Throws std::invalid_argument for a file that cannot be used.
std::optional<Baseline> readBaseline(const Value& name) {
  if (!name) return std::nullopt;
  const auto document = readDocumentFile(std::wstring(*name));
  if (const auto* const problem = std::get_if<DocumentProblem>(&document)) {
    throw std::invalid_argument(toUtf8(problem->text));
  }
  return Baseline(std::get<std::string>(document));
}

constexpr const char* kFooter =
    "All servers are of kiv-selfcheck itself, on 127.0.0.1 and ::1. It changes no setting, and needs\n"
    "neither an administrator nor a network.\n"
    "Results: pass, fail, fact (what documentation leaves open: neither right nor wrong), skipped.\n"
    "They hold no names of this user, this machine or its network.\n"
    "Exit codes: 0 all as expected: with a baseline as it says, without one nothing failed;\n"
    "            1 something is not as expected, 64 wrong usage, 71 out of resources,\n"
    "            74 a file could not be written.";

int run(ArgumentList arguments) {
  Written written;
  CommandLine commandLine("kiv-selfcheck",
                          "Checks on this Windows what kiv promises, with servers of its own on loopback.");
  commandLine.add(kOptions, written);
  commandLine.add(kFlags, written);
  commandLine.version("kiv-selfcheck " KIV_VERSION);
  commandLine.footer(kFooter);
  if (const auto exit = commandLine.parse(arguments)) return leave(*exit);
  const std::vector<Group> groups = allChecks();
  if (written.list) return list(groups);
  if (written.only && std::ranges::count(namesOf(groups), toUtf8(*written.only)) == 0) {
    return leave(commandLine.badUsage("--only: no check has this name; --list prints them"));
  }
  std::optional<Baseline> baseline;
  try {
    baseline = readBaseline(written.baseline);
  } catch (const std::invalid_argument& problem) {
    return leave(commandLine.badUsage(std::string("--baseline: ") + problem.what()));
  }
  return Run(written, std::move(baseline))(groups);
}

}  // namespace

// Whatever ends it early, of itself or of the system.
int guarded(ArgumentList arguments) try { return run(arguments); } catch (const kiv::session::SystemError& error) {
  complain(L"cannot continue: " + systemText(error.code));
  return kOutOfResources;
} catch (const std::exception& failure) {
  complain(L"cannot continue: " + toWide(failure.what()));
  return kOutOfResources;
}

}  // namespace selfcheck

int wmain(int count, wchar_t** arguments) {
  return selfcheck::guarded({arguments + std::min(count, 1), arguments + count});
}

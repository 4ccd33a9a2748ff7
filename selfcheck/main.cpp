// kiv-selfcheck: checks on this Windows what kiv.dll and kiv-session.dll promise, with servers of its own on loopback.
#include <algorithm>
#include <exception>

#include "checks/checks.h"
#include "common/command_line.h"
#include "common/console.h"
#include "common/exits.h"
#include "common/system_text.h"
#include "ground/ground.h"
#include "loop/system_error.h"
#include "results/table.h"

namespace selfcheck {
namespace {

using namespace kiv::tool;

constexpr int kNotAsExpected = 1;

struct Written {
  Value only;
  bool list = false;
};

constexpr ValueOption<Written> kOptions[] = {
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

bool isWanted(const Written& written, const Check& check) {
  return !written.only || toUtf8(*written.only) == check.name;
}

// Prints each result when it is there.
Results runAll(const Written& written, const std::vector<Group>& groups) {
  Ground ground;
  Results results;
  for (const Group& group : groups) {
    ResultGroup& done = results.groups.emplace_back(ResultGroup{group.title, {}});
    for (const Check& check : group.checks) {
      if (!isWanted(written, check)) continue;
      if (done.results.empty()) print(Stream::Output, toWide(titleText(group.title)));
      done.results.push_back({check.name, check.question, found(check, ground)});
      print(Stream::Output, toWide(lineText(done.results.back(), results.compared)));
    }
  }
  std::erase_if(results.groups, [](const ResultGroup& group) { return group.results.empty(); });
  return results;
}

int run(ArgumentList arguments) {
  Written written;
  CommandLine commandLine("kiv-selfcheck",
                          "Checks on this Windows what kiv promises, with servers of its own on loopback.");
  commandLine.add(kOptions, written);
  commandLine.add(kFlags, written);
  commandLine.version("kiv-selfcheck " KIV_VERSION);
  if (const auto exit = commandLine.parse(arguments)) return leave(*exit);
  const std::vector<Group> groups = allChecks();
  if (written.list) return list(groups);
  if (written.only && std::ranges::count(namesOf(groups), toUtf8(*written.only)) == 0) {
    return leave(commandLine.badUsage("--only: no check has this name; --list prints them"));
  }
  const Results results = runAll(written, groups);
  print(Stream::Output, toWide(summaryText(results)));
  return isAsExpected(results) ? kDone : kNotAsExpected;
}

}  // namespace

// Whatever ends it early, of itself or of the system.
int guarded(ArgumentList arguments) try {
  return run(arguments);
} catch (const kiv::session::SystemError& error) {
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

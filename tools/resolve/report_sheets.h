// What reports say about a resolution as names and values; the page and the plain text show them in their own ways.
#pragma once

#include <string>
#include <vector>

#include "common/redaction.h"
#include "common/this_run.h"
#include "resolve/resolution.h"

namespace kiv::tool {

struct Fact {
  std::wstring name;
  std::wstring value;  // empty: none
};

struct FactGroup {
  std::wstring title;  // the route, where there may be several
  std::vector<Fact> facts;
  std::vector<Phase> phases{};  // a time line
};

struct Sheet {
  const wchar_t* kind;  // a class of the style
  const wchar_t* heading;
  std::vector<FactGroup> groups{};
  std::wstring note{};

  bool isEmpty() const { return groups.empty() && note.empty(); }
};

// `redaction` is null if names are shown.
ThisRun shownRun(Redaction* redaction);

// With a run as shownRun returns it.
Sheet whoSheet(const ThisRun& run, WallTime when);
Sheet whoSheet(const Resolution& resolution, const ThisRun& run);
Sheet bypassSheet(const Resolution& resolution);
Sheet discoverySheet(const Resolution& resolution);
// In the order of a report: phases, authentication, certificates, redirects. None without a probe.
std::vector<Sheet> probeSheets(const Resolution& resolution);
Sheet versionsSheet(const ThisRun& run);
// `redaction` is null if names are shown.
Sheet removedSheet(const Redaction* redaction);

// "200, but from portal.example".
std::wstring responseText(const RouteFindings& route);

}  // namespace kiv::tool

// The page of every report: self-contained HTML, without scripts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/markup.h"
#include "resolve/report_sheets.h"

namespace kiv::tool {

Markup classed(std::string_view name, const std::wstring& kind, const Markup& content);
Markup section(const wchar_t* kind, const wchar_t* heading, const Markup& content);
// A name and a value of a list of facts.
Markup factMarkup(const std::wstring& name, const std::wstring& value);
Markup sheetSection(const Sheet& sheet);
Markup sheetSections(const std::vector<Sheet>& sheets);

// `content` is what stands in its main part.
std::string pageOf(const std::wstring& title, const Markup& content);

// What a report of another command than resolve begins with.
struct ReportHead {
  bool good = true;
  std::wstring badge{};
  std::wstring subject{};
  std::wstring reason{};
};

// A page that has a head and sheets.
std::string pageOf(const ReportHead& head, const std::vector<Sheet>& sheets);

}  // namespace kiv::tool

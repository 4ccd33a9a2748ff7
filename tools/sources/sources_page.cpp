// Sources as one self-contained HTML page, without scripts.
#include "sources/sources_page.h"

#include "common/presentable.h"
#include "resolve/report_page.h"
#include "resolve/wording.h"
#include "sources/sources_sheets.h"

namespace kiv::tool {

std::string sourcesPage(const Sources& sources, const Redaction* redaction) {
  const std::size_t count = sources.warnings.size();
  ThisRun run = sources.run;
  run.account = presentable(run.account);
  run.computer = presentable(run.computer);
  const ReportHead head = {.good = count == 0,
                           .badge = count == 0 ? L"No warnings" : counted(count, L"warning"),
                           .subject = L"Proxy settings of " + run.account,
                           .reason = L"on " + run.computer + L", Windows " + run.windows};
  std::vector<Sheet> sheets = {whoSheet(run, sources.time)};
  if (sources.resolution) sheets.push_back(sourcesTargetSheet(*sources.resolution));
  for (Sheet& sheet : sourcesSheets(sources)) sheets.push_back(std::move(sheet));
  sheets.push_back(programsSheet());
  sheets.push_back(versionsSheet(run));
  sheets.push_back(removedSheet(redaction));
  return pageOf(head, sheets);
}

}  // namespace kiv::tool

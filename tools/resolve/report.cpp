// A report on resolutions, in the form that its file's name asks for.
#include "resolve/report.h"

#include "resolve/html_report.h"
#include "resolve/text_report.h"

namespace kiv::tool {

std::string reportFor(std::wstring_view file, const std::vector<Resolution>& resolutions, Redaction* redaction) {
  return file.ends_with(L".txt") ? textReport(resolutions, redaction) : htmlReport(resolutions, redaction);
}

}  // namespace kiv::tool

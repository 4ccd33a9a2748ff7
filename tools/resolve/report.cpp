// A report on resolutions, in the form that its file's name asks for.
#include "resolve/report.h"

#include "resolve/html_report.h"
#include "resolve/text_report.h"

namespace kiv::tool {

bool isTextReport(std::wstring_view file) { return file.ends_with(L".txt"); }

std::string reportFor(std::wstring_view file, const std::vector<Resolution>& resolutions,
                      const std::vector<Sheet>& sources, Redaction* redaction) {
  return isTextReport(file) ? textReport(resolutions, sources, redaction) : htmlReport(resolutions, sources, redaction);
}

}  // namespace kiv::tool

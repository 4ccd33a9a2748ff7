// The report's style, from report.css.
#pragma once

#include <string_view>

namespace kiv::tool {

extern const std::string_view kReportStyle;

}  // namespace kiv::tool

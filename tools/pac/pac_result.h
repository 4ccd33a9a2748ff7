// What the scripts answer for each URL, as a table for people and as a JSON document.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/redaction.h"
#include "pac/evaluation.h"
#include "pac/script.h"

namespace kiv::tool {

enum class PacVerdict : std::uint8_t { Same, Differs, Failed };

struct PacRow {
  std::wstring url{};
  PacAnswer now{};
  std::optional<PacAnswer> before{};  // of the script that it is compared with

  PacVerdict verdict() const;
};

struct PacResult {
  PacScript script{};
  std::optional<PacScript> against{};
  std::vector<PacRow> rows{};

  std::size_t count(PacVerdict verdict) const;
};

std::wstring_view textOf(PacVerdict verdict);       // "differs"
std::wstring answerText(const PacAnswer& answer);   // as WinHTTP returns it
std::wstring readingText(const PacAnswer& answer);  // as kiv reads it

void redact(PacResult& result, Redaction& redaction);

// A line for each URL, below headings. With two scripts, only where they differ or fail, unless all are `wanted`; empty
// if there is no such line.
std::wstring pacTable(const PacResult& result, bool wanted);
// What is to be known beside the table: how many URLs differ, what DIRECT means to kiv, why a script fails.
std::wstring pacRemarks(const PacResult& result);
// The document that docs/kiv-resolve.schema.json describes as pacDocument.
std::string pacDocument(const PacResult& result, bool redacted);

}  // namespace kiv::tool

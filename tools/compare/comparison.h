// Two JSON documents of kiv-resolve side by side: of two machines, two users, or two days.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "common/redaction.h"
#include "compare/document_file.h"

namespace kiv::tool {

// What one place in the documents holds; nothing if a document does not have it.
struct ComparedRow {
  std::wstring where{};  // "places / user-connection / manual list"
  std::optional<std::wstring> left{};
  std::optional<std::wstring> right{};

  bool operator==(const ComparedRow&) const = default;
};

struct Comparison {
  std::vector<ComparedRow> origin{};  // who and where, also what is equal; it does not count as a difference
  std::vector<ComparedRow> differences{};

  bool leftIsRedacted = false;
  bool rightIsRedacted = false;

  bool same() const { return differences.empty(); }
};

// Times and durations are not compared. The problem names the documents A and B. `redaction` is null if names are
// shown.
std::variant<Comparison, DocumentProblem> compareDocuments(std::string_view left, std::string_view right,
                                                           Redaction* redaction);

// What to know of documents without names; empty if there is nothing.
std::wstring noteOn(const Comparison& comparison);

// In columns, or, where a line would be longer than `width`, each value on a line of its own.
std::wstring comparisonText(const Comparison& comparison, std::size_t width);
std::string comparisonDocument(const Comparison& comparison);

}  // namespace kiv::tool

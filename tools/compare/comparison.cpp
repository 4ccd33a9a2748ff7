// Two JSON documents of kiv-resolve side by side: of two machines, two users, or two days.
#include "compare/comparison.h"

#include <algorithm>
#include <list>
#include <map>
#include <nlohmann/json.hpp>

#include "common/console.h"
#include "common/presentable.h"
#include "compare/redacted_documents.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

// No document of kiv-resolve is nested as deeply. Recursion ends here for documents of other origin.
constexpr int kDeepest = 16;

// What differs from run to run, or is the same in every document.
constexpr std::string_view kNotCompared[] = {"program",      "task",         "time",     "began",
                                             "milliseconds", "title",        "programs", "number",
                                             "advice",       "secondsAhead", "failure",  "redacted"};
// The first of these that an object has names it among its neighbours.
constexpr std::string_view kNames[] = {"id", "url", "number", "name"};
constexpr std::string_view kOrigins[] = {"version", "machine"};

struct Entry {
  std::wstring where;
  std::wstring text;
};

// Of results in which the names of two machines, or of two runs, are not the same words.
constexpr const wchar_t* kRedactedNote =
    L"host-1 of one can be another host than host-1 of the other, because each file has its own numbers. "
    L" Compare files that were written without it, with kiv-resolve compare --redact.";

bool isOneOf(std::string_view text, std::span<const std::string_view> texts) {
  return std::ranges::find(texts, text) != texts.end();
}

std::wstring textOf(const Json& value) {
  if (value.is_null()) return L"none";
  if (value.is_boolean()) return value.get<bool>() ? L"yes" : L"no";
  return presentable(toWide(value.is_string() ? value.get<std::string>()
                                              : value.dump(-1, ' ', false, Json::error_handler_t::replace)));
}

std::wstring nameOf(const Json& item, std::size_t index) {
  for (const std::string_view name : kNames) {
    const auto found = item.is_object() ? item.find(std::string(name)) : item.end();
    if (item.is_object() && found != item.end() && found->is_primitive()) return textOf(*found);
  }
  return std::to_wstring(index);
}

// A document as a list of places with a text each.
class Flattened {
 public:
  explicit Flattened(const Json& document) {
    for (const auto& [name, value] : document.items()) {
      if (isOneOf(name, kNotCompared)) continue;
      add(toWide(name), value, 0, isOneOf(name, kOrigins) ? origins_ : entries_);
    }
  }

  const std::vector<Entry>& origins() const { return origins_; }
  const std::vector<Entry>& entries() const { return entries_; }
  bool tooDeep() const { return tooDeep_; }

 private:
  using Entries = std::vector<Entry>;

  void add(const std::wstring& where, const Json& value, int depth, Entries& entries) {
    if (depth > kDeepest) {
      tooDeep_ = true;
    } else if (value.is_object()) {
      addObject(where, value, depth, entries);
    } else if (value.is_array()) {
      addArray(where, value, depth, entries);
    } else {
      entries.push_back({numbered(where), textOf(value)});
    }
  }

  void addObject(const std::wstring& where, const Json& object, int depth, Entries& entries) {
    // A name with a text is one place.
    if (object.size() == 2 && object.contains("name") && object.contains("text"))
      return add(where, object.at("text"), depth + 1, entries);
    for (const auto& [name, value] : object.items()) {
      // A place's values say the same in more detail.
      const bool saidTwice = name == "names" && where.starts_with(L"places /");
      if (!saidTwice && !isOneOf(name, kNotCompared) && !isOneOf(name, kNames))
        add(where + L" / " + presentable(toWide(name)), value, depth + 1, entries);
    }
  }

  void addArray(const std::wstring& where, const Json& array, int depth, Entries& entries) {
    std::size_t index = 0;
    for (const Json& item : array) add(where + L" / " + nameOf(item, index++), item, depth + 1, entries);
  }

  // Several items can have one name, such as warnings of one kind.
  std::wstring numbered(const std::wstring& where) {
    const int count = ++counts_[where];
    return count == 1 ? where : where + L" (" + std::to_wstring(count) + L")";
  }

  Entries origins_;
  Entries entries_;
  std::map<std::wstring, int> counts_;
  bool tooDeep_ = false;
};

// In the order of the left list; what only the right one has follows what precedes it there.
std::vector<ComparedRow> aligned(const std::vector<Entry>& left, const std::vector<Entry>& right) {
  std::list<ComparedRow> rows;
  std::map<std::wstring_view, std::list<ComparedRow>::iterator> known;
  for (const Entry& entry : left) known[entry.where] = rows.insert(rows.end(), {entry.where, entry.text, std::nullopt});
  auto next = rows.begin();
  for (const Entry& entry : right) {
    const auto found = known.find(entry.where);
    if (found == known.end()) {
      rows.insert(next, {entry.where, std::nullopt, entry.text});
    } else {
      found->second->right = entry.text;
      next = std::next(found->second);
    }
  }
  return {rows.begin(), rows.end()};
}

// Nothing if the text is not a document of this program.
std::optional<Json> documentIn(std::string_view text) {
  Json json = Json::parse(text, nullptr, false);
  const bool isOurs = json.is_object() && json.value("program", Json()) == "kiv-resolve" && json.contains("task");
  return isOurs ? std::optional(std::move(json)) : std::nullopt;
}

bool isRedacted(const Json& document) { return document.value("redacted", Json()) == true; }

std::wstring shown(const std::optional<std::wstring>& text) { return text.value_or(L"-"); }

void addLines(const std::vector<ComparedRow>& rows, std::size_t width, std::wstring& text) {
  std::size_t where = 0;
  std::size_t left = 0;
  std::size_t right = 0;
  for (const ComparedRow& row : rows) {
    where = std::max(where, row.where.size());
    left = std::max(left, shown(row.left).size());
    right = std::max(right, shown(row.right).size());
  }
  const auto padded = [](std::wstring cell, std::size_t size) {
    cell.resize(std::max(size, cell.size()), L' ');
    return cell;
  };
  const bool inColumns = 2 + where + 2 + left + 2 + right < width;
  for (const ComparedRow& row : rows) {
    text += inColumns ? L"  " + padded(row.where, where) + L"  " + padded(shown(row.left), left) + L"  " +
                            shown(row.right) + L"\n"
                      : L"  " + row.where + L"\n    A  " + shown(row.left) + L"\n    B  " + shown(row.right) + L"\n";
  }
}

Json rowsOf(const std::vector<ComparedRow>& rows) {
  const auto orNull = [](const std::optional<std::wstring>& text) {
    return text ? Json(toUtf8(*text)) : Json(nullptr);
  };
  Json array = Json::array();
  for (const ComparedRow& row : rows)
    array.push_back({{"where", toUtf8(row.where)}, {"a", orNull(row.left)}, {"b", orNull(row.right)}});
  return array;
}

}  // namespace

std::variant<Comparison, DocumentProblem> compareDocuments(std::string_view left, std::string_view right,
                                                           Redaction* redaction) {
  auto leftDocument = documentIn(left);
  auto rightDocument = documentIn(right);
  if (!leftDocument) return DocumentProblem{L"A is not a JSON document of kiv-resolve"};
  if (!rightDocument) return DocumentProblem{L"B is not a JSON document of kiv-resolve"};
  if (leftDocument->at("task") != rightDocument->at("task"))
    return DocumentProblem{L"A and B are of different commands"};
  if (Flattened(*leftDocument).tooDeep() || Flattened(*rightDocument).tooDeep())
    return DocumentProblem{L"A or B is nested too deeply"};
  if (redaction) redact(*leftDocument, *rightDocument, *redaction);
  const Flattened flatLeft(*leftDocument);
  const Flattened flatRight(*rightDocument);
  Comparison comparison = {.origin = aligned(flatLeft.origins(), flatRight.origins()),
                           .differences = aligned(flatLeft.entries(), flatRight.entries()),
                           .leftIsRedacted = isRedacted(*leftDocument),
                           .rightIsRedacted = isRedacted(*rightDocument)};
  std::erase_if(comparison.differences, [](const ComparedRow& row) { return row.left == row.right; });
  return comparison;
}

std::wstring noteOn(const Comparison& comparison) {
  const bool left = comparison.leftIsRedacted;
  const bool right = comparison.rightIsRedacted;
  if (left && right) return std::wstring(L"A and B were written with --redact: ") + kRedactedNote;
  if (!left && !right) return {};
  return std::wstring(left ? L"A" : L"B") +
         L" was written with --redact, and the other file was not: all names differ. Compare files that were written "
         L"without it, with kiv-resolve compare --redact.";
}

std::wstring comparisonText(const Comparison& comparison, std::size_t width) {
  std::wstring text = L"Where they are from\n";
  addLines(comparison.origin, width, text);
  const std::wstring note = noteOn(comparison);
  if (!note.empty()) text += L"Note: " + note + L"\n";
  if (comparison.same()) return text + L"No differences\n";
  text += L"Differences: " + std::to_wstring(comparison.differences.size()) + L"\n";
  addLines(comparison.differences, width, text);
  return text;
}

std::string comparisonDocument(const Comparison& comparison) {
  const std::wstring note = noteOn(comparison);
  const Json json = {{"program", "kiv-resolve"},
                     {"version", KIV_VERSION},
                     {"task", "compare"},
                     {"same", comparison.same()},
                     {"note", note.empty() ? Json(nullptr) : Json(toUtf8(note))},
                     {"origin", rowsOf(comparison.origin)},
                     {"differences", rowsOf(comparison.differences)}};
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kiv::tool

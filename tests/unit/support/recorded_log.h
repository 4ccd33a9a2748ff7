// An application's log for tests: a logger whose lines are kept, and checked for passwords.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "kiv/log.h"
#include "platform/memory_watch.h"

namespace kiv::test {

// Keeps each line as its level's letter (E, W, I, D) and its text: L"I: text". Adds a failure, when it goes, for each
// line that holds a password that it was told of. What it allocates itself is neither counted nor made to fail.
class RecordedLog {
 public:
  explicit RecordedLog(std::initializer_list<std::wstring_view> passwords = {}) {
    const MemoryWatch::Pause pause;
    logger_ = KivLogger_Construct(this, &RecordedLog::record);
    passwords_.assign(passwords.begin(), passwords.end());
  }
  ~RecordedLog() {
    reportPasswords();
    const MemoryWatch::Pause pause;
    KivLogger_Destruct(logger_);
    passwords_ = {};
    lines_ = {};
  }
  RecordedLog(const RecordedLog&) = delete;
  RecordedLog& operator=(const RecordedLog&) = delete;

  // Called with each line as it arrives, if set; not watched either.
  std::function<void(const std::wstring& line)> onLine;

  KivLogger* logger() const { return logger_; }
  const std::vector<std::wstring>& lines() const { return lines_; }
  std::size_t count(std::wstring_view line) const { return std::ranges::count(lines_, line); }
  // Forgets the lines, once they were checked for the passwords known by now.
  void clear() {
    reportPasswords();
    lines_.clear();
  }

  // Tells the log of a password that no line, earlier or later, may hold. An empty one is in every line: it is ignored.
  void forbid(std::wstring_view password) {
    const MemoryWatch::Pause pause;
    passwords_.emplace_back(password);
  }

  std::vector<std::wstring> linesWithPasswords() const {
    const MemoryWatch::Pause pause;
    std::vector<std::wstring> found;
    for (const std::wstring& line : lines_) {
      const auto held = [&](const std::wstring& word) { return !word.empty() && line.find(word) != line.npos; };
      if (std::ranges::any_of(passwords_, held)) found.push_back(line);
    }
    return found;
  }

 private:
  void reportPasswords() const {
    for (const std::wstring& line : linesWithPasswords()) ADD_FAILURE() << "a password was logged in: " << line;
  }

  static const wchar_t* letterOf(const KivLog* log) {
    if (KivLog_IsError(log)) return L"E";
    if (KivLog_IsWarn(log)) return L"W";
    if (KivLog_IsInfo(log)) return L"I";
    return KivLog_IsDebug(log) ? L"D" : L"?";
  }

  static void record(void* context, const KivLog* log) {
    const MemoryWatch::Pause pause;
    auto& self = *static_cast<RecordedLog*>(context);
    const std::wstring line = std::wstring(letterOf(log)) + L": " + KivLog_Message(log);
    self.lines_.push_back(line);
    if (self.onLine) self.onLine(line);
  }

  KivLogger* logger_ = nullptr;
  std::vector<std::wstring> lines_;
  std::vector<std::wstring> passwords_;
};

}  // namespace kiv::test

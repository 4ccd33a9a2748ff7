// The command line of one command: its options as tables, parsed by CLI11.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/arguments.h"

namespace CLI {
class App;
}

namespace kiv::tool {

// A value of the command line. It stays where it is: it can hold a password.
using Value = std::optional<std::wstring_view>;

// What is wrong with a value; empty if nothing is. Must not quote the value, which can hold a password.
using Check = std::string (*)(std::wstring_view);

std::string anything(std::wstring_view text);
std::string mustNameAFile(std::wstring_view text);

// An option with a value, or, without dashes in front of its name, a value by its place, which must be given unless its
// name is in brackets. `Written` has what a command reads.
template <class Written>
struct ValueOption {
  std::string_view name;
  Value Written::*value;
  const char* type;
  Check check;
  const char* help;
};

template <class Written>
struct Flag {
  const char* name;
  bool Written::*value;
  const char* help;
};

// An option of other commands that means nothing to this one, and why: --help does not have it.
struct Refused {
  std::string_view name;
  const char* why;
};

// What to do when there is nothing to run: print a text and end with a code.
struct Exit {
  int code = 0;
  std::string text;
};

constexpr int kBadUsage = 64;

// The only argument that makes a command print its options in place of what it is for: a line for each, with its name,
// the type of its value (empty for a flag) and its help, separated by tabs. For the completion of command lines.
constexpr std::wstring_view kListOptions = L"--list-options";

using ArgumentList = std::span<const wchar_t* const>;

class CommandLine {
 public:
  // `command` is what the user types in front of the arguments, such as "kiv-resolve env".
  CommandLine(std::string command, std::string description);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine();

  // Declares options in the order in which --help has them. The tables and `written` must outlive this object.
  template <class Written, std::size_t count>
  void add(const ValueOption<Written> (&options)[count], Written& written) {
    for (const auto& option : options)
      declare(option.name, option.type, option.check, option.help, written.*option.value);
  }
  template <class Written, std::size_t count>
  void add(const Flag<Written> (&flags)[count], Written& written) {
    for (const auto& flag : flags) declare(flag.name, flag.help, written.*flag.value);
  }
  // The table must outlive this object.
  void refuse(std::span<const Refused> options) { refused_ = options; }
  // Declares --version.
  void version(const char* text);
  void footer(const std::string& text);

  // Reads the arguments, which must outlive what was written. `refuse` says what is wrong with what was written
  // together; empty if nothing is. Returns what to do instead of the command, if that is something.
  template <class Refuse>
  std::optional<Exit> parse(ArgumentList arguments, Refuse refuse) {
    if (auto exit = parse(arguments)) return exit;
    const std::string problem = refuse();
    return problem.empty() ? std::nullopt : std::optional(badUsage(problem));
  }
  std::optional<Exit> parse(ArgumentList arguments);

  // What a command says of a wrong command line.
  Exit badUsage(const std::string& problem) const;

 private:
  void declare(std::string_view name, const char* type, Check check, const char* help, Value& value);
  void declare(const char* name, const char* help, bool& value);
  void list(std::string_view name, std::string_view type, std::string_view help);
  std::string refusal() const;
  std::string unexpected() const;

  std::string command_;
  std::unique_ptr<CLI::App> app_;
  std::string listed_;                  // what kListOptions prints
  std::vector<std::string> withValue_;  // the options that take one
  std::vector<std::string> places_;     // the values by their places
  std::span<const Refused> refused_;
  std::optional<Arguments> arguments_;  // while CLI11 parses them
};

}  // namespace kiv::tool

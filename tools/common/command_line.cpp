// The command line of one command: its options as tables, parsed by CLI11.
#include "common/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace kiv::tool {

std::string anything(std::wstring_view /*text*/) { return {}; }

std::string mustNameAFile(std::wstring_view text) { return text.empty() ? "must name a file" : std::string(); }

CommandLine::CommandLine(std::string command, std::string description)
    : command_(std::move(command)), app_(std::make_unique<CLI::App>(std::move(description), command_)) {
  app_->allow_windows_style_options(false);
  app_->get_formatter()->column_width(28);
  list("--help", "", "Print this help message and exit");
}

CommandLine::~CommandLine() = default;

void CommandLine::declare(std::string_view name, const char* type, Check check, const char* help, Value& value) {
  const bool named = name.starts_with('-');
  const bool optional = named || name.starts_with('[');
  if (!named && optional) name = name.substr(1, name.size() - 2);
  (named ? withValue_ : places_).emplace_back(name);
  if (named) list(name, type, help);
  const auto store = [this, &value](const std::string& placeholder) { value = arguments_->valueOf(placeholder); };
  const auto checked = [this, check](const std::string& placeholder) {
    return check(arguments_->valueOf(placeholder));
  };
  app_->add_option_function<std::string>(std::string(name), store, help)
      ->type_name(type)
      ->check(checked)
      ->required(!optional);
}

void CommandLine::declare(const char* name, const char* help, bool& value) {
  app_->add_flag(name, value, help)->disable_flag_override();
  list(name, "", help);
}

void CommandLine::list(std::string_view name, std::string_view type, std::string_view help) {
  listed_.append(name).append("\t").append(type).append("\t").append(help).append("\n");
}

void CommandLine::version(const char* text) {
  constexpr const char* kHelp = "Print the version and exit";
  app_->set_version_flag("--version", text, kHelp);
  list("--version", "", kHelp);
}

void CommandLine::footer(const std::string& text) { app_->footer(text); }

std::optional<Exit> CommandLine::parse(ArgumentList arguments) {
  if (arguments.size() == 1 && arguments.front() == kListOptions) return Exit{0, listed_};
  arguments_.emplace(arguments, [this](std::string_view option) { return std::ranges::count(withValue_, option) > 0; });
  if (const std::string problem = refusal(); !problem.empty()) return badUsage(problem);
  std::vector<std::string> forParser = arguments_->forParser();
  std::ranges::reverse(forParser);  // as CLI11 takes them
  try {
    app_->parse(std::move(forParser));
  } catch (const CLI::CallForHelp&) {
    return Exit{0, app_->help()};
  } catch (const CLI::CallForVersion& version) {
    return Exit{0, std::string(version.what()) + "\n"};
  } catch (const CLI::ExtrasError&) {
    return badUsage(unexpected());
  } catch (const CLI::ParseError& error) {
    return badUsage(error.what());
  }
  return std::nullopt;
}

Exit CommandLine::badUsage(const std::string& problem) const {
  return {kBadUsage, command_ + ": " + problem + " (see --help)\n"};
}

std::string CommandLine::refusal() const {
  for (const std::string& argument : arguments_->forParser()) {
    const auto found = std::ranges::find(refused_, argument.substr(0, argument.find('=')), &Refused::name);
    if (found != refused_.end()) return std::string(found->name) + ": " + found->why;
  }
  return {};
}

// CLI11 would quote the placeholders of values. An unknown option may have its value in the same argument.
std::string CommandLine::unexpected() const {
  for (const std::string& argument : app_->remaining()) {
    if (argument.starts_with("-")) return "unknown option " + argument.substr(0, argument.find_first_of("=:"));
  }
  return places_.size() == 1 ? "more than one " + places_.front() : "too many arguments";
}

}  // namespace kiv::tool

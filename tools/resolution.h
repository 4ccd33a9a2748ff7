// What one resolution taught: the user's settings, each candidate's requests, the outcome and the log.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kiv::tool {

using std::chrono::milliseconds;
using WallTime = std::chrono::system_clock::time_point;

enum class Level : std::uint8_t { Error, Warn, Info, Debug };

struct Record {
  WallTime time;
  Level level = Level::Error;
  std::wstring message;  // presentable, lines separated by "\n"
};

// The user's proxy settings, as Windows hands them to every program.
struct UserSettings {
  bool found = false;
  bool automaticDetection = false;
  std::wstring scriptUrl;
  std::wstring manualList;
  std::wstring bypassList;
};

struct Request {
  milliseconds began{};  // since the resolution began
  milliseconds duration{};
  int status = -1;  // negative if there was no answer
  std::optional<unsigned> error{};
  std::wstring failure{};  // what the library said about it
};

enum class Origin : std::uint8_t { Preferred, System, Fallback };

enum class Verdict : std::uint8_t {
  Works,
  ProxyWantsCredentials,
  ServerWantsCredentials,
  NoSuccess,
  NoAnswer,
  Invalid,
  NotTested,
};

struct Candidate {
  std::wstring text{};  // without credentials
  Origin origin = Origin::System;
  bool invalid = false;
  bool proxyCredGiven = false;   // after it asked for some
  bool serverCredGiven = false;  // after the server behind it asked for some
  std::vector<Request> requests{};

  Verdict verdict() const;
  milliseconds duration() const;
};

enum class OutcomeKind : std::uint8_t { Proxy, Direct, None, NotTested, NotCarriedOut };

struct Outcome {
  OutcomeKind kind = OutcomeKind::NotCarriedOut;
  std::wstring text;
};

struct Bypass {
  std::wstring list{};
  bool given = false;  // by the caller, in place of the system's
  bool matches = false;
};

struct Resolution {
  std::wstring url;
  WallTime began;
  milliseconds duration{};
  UserSettings settings;
  bool discoveryFailed = false;
  milliseconds discoveryDuration{};
  Bypass bypass;
  std::vector<Candidate> candidates;
  Outcome outcome;
  std::vector<Record> log;

  // Which candidate won; nothing if none did.
  std::optional<std::size_t> winner() const;
};

}  // namespace kiv::tool

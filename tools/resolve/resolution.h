// What is known of one resolution: the user's settings, each candidate's requests, the outcome and the log.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kiv/kiv.hpp"
#include "probe/findings.h"

namespace kiv::tool {

using std::chrono::milliseconds;
using WallTime = std::chrono::system_clock::time_point;

struct Record {
  WallTime time;
  LogLevel level = LogLevel::Error;
  std::wstring message;  // presentable, lines separated by "\n"
};

// The user's proxy settings, as Windows returns them to every program.
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
  int status = -1;  // negative if there was no response
  std::optional<unsigned> error{};
  std::wstring failure{};  // what the library logged about it
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
  ProxyConfig route{};  // with those that it came with; shown nowhere
  Origin origin = Origin::System;
  bool invalid = false;
  bool proxyCredGiven = false;   // after a 407
  bool serverCredGiven = false;  // after a 401
  std::vector<Request> requests{};

  Verdict verdict() const;
  bool rejectsCredentials() const;
  milliseconds duration() const;
};

// NotCarriedOut: the library could not complete it. Stopped: the user's time for it was up.
enum class OutcomeKind : std::uint8_t { Proxy, Direct, None, NotTested, NotCarriedOut, Stopped };

struct Outcome {
  OutcomeKind kind = OutcomeKind::NotCarriedOut;
  std::wstring text;
};

struct Bypass {
  std::wstring list{};
  bool given = false;  // with --bypass, instead of the user's
  bool matches = false;
  std::wstring entry{};  // that matches
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
  ProxyConfig found{};                 // as the outcome, with the credentials that it needed; shown nowhere
  std::optional<ProbeFindings> probe;  // nothing if none was requested

  // The number of the candidate that works; nothing if none does.
  std::optional<std::size_t> winner() const;
};

}  // namespace kiv::tool

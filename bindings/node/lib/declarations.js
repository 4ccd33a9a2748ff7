// What include/kiv/session.h declares. bindings/check_declarations.py compares this file with that header: each value
// stands in a line that ends with its name there.
'use strict';

const NO_TIME_OUT = 0xffffffff; // KIV_NO_TIME_OUT

const OK = 0; // KIV_STATUS_OK
const AGAIN = 11; // KIV_STATUS_AGAIN
const DONE = 12; // KIV_STATUS_DONE
const SYSTEM = 0x80070000; // KIV_STATUS_SYSTEM

/** The codes of errors. */
const CODES = {
  KIV_TIMED_OUT: 1, // KIV_STATUS_TIMED_OUT
  KIV_CANCELLED: 2, // KIV_STATUS_CANCELLED
  KIV_BAD_ARGUMENT: 3, // KIV_STATUS_BAD_ARGUMENT
  KIV_BAD_URL: 4, // KIV_STATUS_BAD_URL
  KIV_TOO_LATE: 5, // KIV_STATUS_TOO_LATE
  KIV_REENTRANT: 6, // KIV_STATUS_REENTRANT
  KIV_UNSUPPORTED: 7, // KIV_STATUS_UNSUPPORTED
  KIV_OUT_OF_MEMORY: 8, // KIV_STATUS_OUT_OF_MEMORY
  KIV_CLOSED: 9, // KIV_STATUS_CLOSED
  KIV_NOT_YET: 10, // KIV_STATUS_NOT_YET
  KIV_REJECTED: 13, // KIV_STATUS_REJECTED
  KIV_TOO_MANY: 0x80070718, // KIV_STATUS_TOO_MANY
};

const KINDS = {
  none: 0, // KIV_KIND_NONE
  direct: 1, // KIV_KIND_DIRECT
  proxy: 2, // KIV_KIND_PROXY
};

const REASONS = {
  bypassed: 0x101, // KIV_REASON_BYPASSED
  reached: 0x102, // KIV_REASON_REACHED
  connected: 0x103, // KIV_REASON_CONNECTED
  notTested: 0x104, // KIV_REASON_NOT_TESTED
  makeshift: 0x105, // KIV_REASON_MAKESHIFT
  noCandidate: 0x111, // KIV_REASON_NO_CANDIDATE
  nothingWorks: 0x112, // KIV_REASON_NOTHING_WORKS
  credentialsWanted: 0x113, // KIV_REASON_CREDENTIALS_WANTED
  schemeUnsupported: 0x114, // KIV_REASON_SCHEME_UNSUPPORTED
};

const SCHEMES = {
  basic: 0x1, // KIV_SCHEME_BASIC
  ntlm: 0x2, // KIV_SCHEME_NTLM
  digest: 0x8, // KIV_SCHEME_DIGEST
  negotiate: 0x10, // KIV_SCHEME_NEGOTIATE
};

const FAILURES = {
  proxyUnreachable: 1, // KIV_FAILURE_PROXY_UNREACHABLE
  proxyCredentials: 2, // KIV_FAILURE_PROXY_CREDENTIALS
  target: 3, // KIV_FAILURE_TARGET
};

const COUNTERS = {
  resolutions: 1, // KIV_COUNTER_RESOLUTIONS
  keptAnswers: 2, // KIV_COUNTER_KEPT_ANSWERS
  keptOrigins: 3, // KIV_COUNTER_KEPT_ORIGINS
  waiting: 4, // KIV_COUNTER_WAITING
  discoveries: 5, // KIV_COUNTER_DISCOVERIES
  overdueDiscoveries: 6, // KIV_COUNTER_OVERDUE_DISCOVERIES
  testRequests: 7, // KIV_COUNTER_TEST_REQUESTS
  connections: 8, // KIV_COUNTER_CONNECTIONS
  challenges: 9, // KIV_COUNTER_CHALLENGES
  changes: 10, // KIV_COUNTER_CHANGES
  lostLogLines: 11, // KIV_COUNTER_LOST_LOG_LINES
};

const NUMBERS = {
  test: 1, // KIV_OPTION_TEST
  timeout: 2, // KIV_OPTION_TIME_OUT
  discoveryTimeout: 3, // KIV_OPTION_DISCOVERY_TIME_OUT
  connectTimeout: 4, // KIV_OPTION_CONNECT_TIME_OUT
  answerTimeout: 5, // KIV_OPTION_ANSWER_TIME_OUT
  keptTime: 6, // KIV_OPTION_KEPT_TIME
  pastTime: 7, // KIV_OPTION_PAST_TIME
  failureTime: 8, // KIV_OPTION_FAILURE_TIME
  deadTime: 9, // KIV_OPTION_DEAD_TIME
  origins: 10, // KIV_OPTION_ORIGINS
  candidates: 11, // KIV_OPTION_CANDIDATES
  direct: 12, // KIV_OPTION_DIRECT
  loggedOnUser: 13, // KIV_OPTION_LOGGED_ON_USER
  schemes: 14, // KIV_OPTION_SCHEMES
  logLevel: 15, // KIV_OPTION_LOG_LEVEL
};

const TEXTS = {
  leftOut: 64, // KIV_OPTION_LEFT_OUT
  bypassList: 65, // KIV_OPTION_BYPASS_LIST
};

const PROXIES = {
  preferred: 1, // KIV_PROXY_PREFERRED
  fallback: 2, // KIV_PROXY_FALLBACK
};

const LEVELS = {
  off: 0, // KIV_LOG_LEVEL_OFF
  error: 1, // KIV_LOG_LEVEL_ERROR
  warn: 2, // KIV_LOG_LEVEL_WARN
  info: 3, // KIV_LOG_LEVEL_INFO
  debug: 4, // KIV_LOG_LEVEL_DEBUG
};

/** The words of options that have no other values. */
const WORDS = {
  test: {
    none: 0, // KIV_TEST_NONE
    connect: 1, // KIV_TEST_CONNECT
    reached: 2, // KIV_TEST_REACHED
  },
  direct: {
    settings: 0, // KIV_DIRECT_SETTINGS
    lastResort: 1, // KIV_DIRECT_LAST_RESORT
    never: 2, // KIV_DIRECT_NEVER
  },
  loggedOnUser: {
    never: 0, // KIV_LOGGED_ON_USER_NEVER
    system: 1, // KIV_LOGGED_ON_USER_SYSTEM
    proxies: 2, // KIV_LOGGED_ON_USER_PROXIES
  },
  logLevel: LEVELS,
};

const EVENTS = {
  completed: 1, // KIV_EVENT_COMPLETED
  challenge: 2, // KIV_EVENT_CHALLENGE
  withdrawn: 3, // KIV_EVENT_WITHDRAWN
  changed: 4, // KIV_EVENT_CHANGED
  log: 5, // KIV_EVENT_LOG
  closed: 6, // KIV_EVENT_CLOSED
};

/** The name of a value in one of these tables. */
function nameIn(table, value) {
  return Object.keys(table).find((name) => table[name] === value);
}

module.exports = {
  NO_TIME_OUT,
  OK,
  AGAIN,
  DONE,
  SYSTEM,
  CODES,
  KINDS,
  REASONS,
  SCHEMES,
  FAILURES,
  COUNTERS,
  NUMBERS,
  TEXTS,
  PROXIES,
  LEVELS,
  WORDS,
  EVENTS,
  nameIn,
};

// The texts of statuses and reasons.
#include <algorithm>
#include <array>
#include <cstdint>

#include "kiv/session.h"

namespace {

struct StatusText {
  std::uint32_t status;
  const wchar_t* text;
};

// Failures of FACILITY_SECURITY ("Structure of COM Error Codes"), such as SEC_E_LOGON_DENIED.
constexpr std::uint32_t kSecurityStatus = 0x80090000U;

constexpr std::array kStatusTexts = {
    StatusText{KIV_STATUS_OK, L"ok"},
    StatusText{KIV_STATUS_TIMED_OUT, L"timed out"},
    StatusText{KIV_STATUS_CANCELLED, L"cancelled"},
    StatusText{KIV_STATUS_BAD_ARGUMENT, L"bad argument"},
    StatusText{KIV_STATUS_BAD_URL, L"not an http, https, ws or wss URL"},
    StatusText{KIV_STATUS_TOO_LATE, L"too late: settings can only be changed before the first resolution"},
    StatusText{KIV_STATUS_REENTRANT, L"not possible inside a callback of the session"},
    StatusText{KIV_STATUS_UNSUPPORTED, L"not supported"},
    StatusText{KIV_STATUS_OUT_OF_MEMORY, L"out of memory"},
    StatusText{KIV_STATUS_CLOSED, L"the session was closed"},
    StatusText{KIV_STATUS_NOT_YET, L"no result yet"},
    StatusText{KIV_STATUS_AGAIN, L"send the header and continue"},
    StatusText{KIV_STATUS_DONE, L"send the header; nothing more is to be sent"},
    StatusText{KIV_STATUS_REJECTED, L"the proxy refused the credentials"},
    StatusText{KIV_STATUS_TOO_MANY, L"too many callers wait, or too many completions that nobody has read"},
    StatusText{KIV_REASON_BYPASSED, L"the bypass list names the target"},
    StatusText{KIV_REASON_REACHED, L"the target was reached"},
    StatusText{KIV_REASON_CONNECTED, L"a connection could be made"},
    StatusText{KIV_REASON_NOT_TESTED, L"the first candidate, untested"},
    StatusText{KIV_REASON_MAKESHIFT,
               L"nothing better was found than a proxy that answered with an error or a redirect"},
    StatusText{KIV_REASON_NO_CANDIDATE, L"there is no candidate"},
    StatusText{KIV_REASON_NOTHING_WORKS, L"no candidate works"},
    StatusText{KIV_REASON_CREDENTIALS_WANTED, L"a proxy wants credentials"},
    StatusText{KIV_REASON_SCHEME_UNSUPPORTED, L"a proxy offers no authentication scheme that can be used"},
};

}  // namespace

const wchar_t* KivStatus_Text(uint32_t statusOrReason) {
  const auto known = std::ranges::find(kStatusTexts, statusOrReason, &StatusText::status);
  if (known != kStatusTexts.end()) return known->text;
  switch (statusOrReason & 0xFFFF0000U) {
    case KIV_STATUS_SYSTEM:
      return L"system error";
    case kSecurityStatus:
      return L"error of a security package";
    default:
      return L"unknown status";
  }
}

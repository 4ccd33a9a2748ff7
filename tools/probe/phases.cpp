// How long each part of a request took, from what WinHTTP's status callback reported.
#include "probe/phases.h"

#include <windows.h>
#include <winhttp.h>

namespace kiv::tool {
namespace {

class Phases {
 public:
  explicit Phases(bool isHttps) : isHttps_(isHttps) {}

  void add(const Notice& notice) {
    switch (notice.status) {
      case WINHTTP_CALLBACK_STATUS_RESOLVING_NAME:
        return begin(PhaseKind::Name, notice);
      case WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER:
        return begin(PhaseKind::Connection, notice);
      case WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER:
        end(notice, true);
        if (isHttps_) begin(PhaseKind::Tls, notice);
        secured_ = false;
        return;
      case WINHTTP_CALLBACK_STATUS_SENDING_REQUEST:
        return sending(notice);
      case WINHTTP_CALLBACK_STATUS_REQUEST_SENT:
        if (isOpen(PhaseKind::Sending)) begin(PhaseKind::FirstByte, notice);
        return;
      case WINHTTP_CALLBACK_STATUS_NAME_RESOLVED:
        return end(notice, true);
      case WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED:
        return received(notice);
      case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
        return answered(notice);
      case WINHTTP_CALLBACK_STATUS_REDIRECT:
        isHttps_ = notice.text.starts_with(L"https:");
        return;
      case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
        return end(notice, false);
      default:
        return;
    }
  }

  std::vector<Phase> phases;

 private:
  bool isOpen(PhaseKind kind) const { return open_ && phases.back().kind == kind; }

  void begin(PhaseKind kind, const Notice& notice) {
    // Another address is tried when a connection to the first one fails.
    end(notice, !isOpen(PhaseKind::Connection));
    phases.push_back({.kind = kind, .began = notice.at});
    if (kind == PhaseKind::Connection) phases.back().address = notice.text;
    open_ = true;
  }

  void end(const Notice& notice, bool completed) {
    if (!open_) return;
    phases.back().duration = notice.at - phases.back().began;
    phases.back().completed = completed;
    open_ = false;
  }

  // The first request of an https URL that is sent without TLS is the CONNECT to the proxy.
  void sending(const Notice& notice) {
    if (!isHttps_ || secured_ || notice.hasCertificate) {
      secured_ = notice.hasCertificate;
      return begin(PhaseKind::Sending, notice);
    }
    if (!isOpen(PhaseKind::Tls)) return begin(PhaseKind::Tunnel, notice);
    phases.back().kind = PhaseKind::Tunnel;
  }

  void received(const Notice& notice) {
    if (isOpen(PhaseKind::Tunnel)) return begin(PhaseKind::Tls, notice);
    end(notice, true);
  }

  // The answer to a CONNECT that opened no tunnel is that to the request: no TLS follows.
  void answered(const Notice& notice) {
    if (isOpen(PhaseKind::Tls)) {
      phases.pop_back();
      open_ = false;
    }
    end(notice, true);
  }

  bool isHttps_;
  bool secured_ = false;  // TLS is established on the connection
  bool open_ = false;     // the last phase has not ended
};

}  // namespace

std::vector<Phase> phasesOf(const std::vector<Notice>& notices, bool isHttps) {
  Phases read(isHttps);
  for (const Notice& notice : notices) read.add(notice);
  return std::move(read.phases);
}

}  // namespace kiv::tool

// Whether the system would say that the machine's addresses have changed.
#include "checks/address_changes.h"

#include "changes/ip_helper.h"
#include "ground/patience.h"
#include "loop/system_error.h"
#include "support/owners.h"

namespace selfcheck {
namespace {

struct EndRegistration {
  void operator()(HANDLE registration) const noexcept { CancelMibChangeNotify2(registration); }
};

VOID NETIOAPI_API_ onAddress(PVOID context, PMIB_UNICASTIPADDRESS_ROW /*row*/, MIB_NOTIFICATION_TYPE type) {
  if (type == MibInitialNotification) SetEvent(context);
}

}  // namespace

Registration registerForAddressChanges() {
  const kiv::support::UniqueEvent reported(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!reported) kiv::session::throwLastError();
  kiv::support::Unique<HANDLE, EndRegistration> registration;
  if (NotifyUnicastIpAddressChange(AF_UNSPEC, onAddress, reported.get(), TRUE, registration.put()) != NO_ERROR) {
    return Registration::Failed;
  }
  // Without a handle there is nothing to wait for.
  if (!registration) return Registration::Silent;
  const Patience patience;
  return WaitForSingleObject(reported.get(), patience.left()) == WAIT_OBJECT_0 ? Registration::Reported
                                                                               : Registration::Silent;
}

}  // namespace selfcheck

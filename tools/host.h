// The host of a resolution: the library's own client and dialogs behind its callbacks.
#pragma once

#include "handles.h"
#include "log_printer.h"
#include "options.h"

namespace kiv::tool {

class Host {
 public:
  explicit Host(const Options& options);

  // The outcome; null if the resolution could not be carried out.
  UniqueProxyConfig resolve();

 private:
  KivCred* proxyCred(KivProxyConfig* proxy) const;
  KivCred* serverCred(const wchar_t* url) const;

  const Options& options_;
  LogPrinter log_;
  UniqueHttpClient client_;
};

}  // namespace kiv::tool

/* A program with Visual C++'s binary interface, which has no library but kiv: ends with the port of the proxy that it
 * parsed. What its entry returns is the exit code of the process, whose only thread it is. */
#include <kiv/kiv.h>

unsigned start(void) {
  KivProxyConfig* proxy = KivProxyConfig_Parse(L"http://gate:42", 0);
  const unsigned port = KivProxyConfig_IsValid(proxy) ? (unsigned)KivProxyConfig_Port(proxy, 0) : 0;
  KivProxyConfig_Destruct(proxy);
  return port;
}

/* Sockets of test programs on loopback. Link with ws2_32. */
#ifndef KIV_TESTS_LOOPBACK_H
#define KIV_TESTS_LOOPBACK_H

#include <stdlib.h>

#include <winsock2.h>

/* The system chooses the port. Bound without listening, nobody else gets it, and it refuses connections. */
static SOCKET bind_to_loopback(unsigned* port) {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  const SOCKET bound = socket(AF_INET, SOCK_STREAM, 0);
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  int size = sizeof address;
  if (bind(bound, (struct sockaddr*)&address, size) != 0 ||
      getsockname(bound, (struct sockaddr*)&address, &size) != 0) {
    abort();
  }
  *port = ntohs(address.sin_port);
  return bound;
}

/* Accepts connections, which nobody serves unless the test does. */
static SOCKET listen_on_loopback(unsigned* port) {
  const SOCKET listening = bind_to_loopback(port);
  if (listen(listening, SOMAXCONN) != 0) abort();
  return listening;
}

#endif

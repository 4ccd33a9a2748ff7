// Addresses and their lookup, for builds on other systems; layouts as on Windows.
#pragma once

#include <winsock2.h>

#define AI_PASSIVE 0x00000001
#define AI_CANONNAME 0x00000002
#define AI_NUMERICHOST 0x00000004
#define AI_NUMERICSERV 0x00000008
#define AI_ADDRCONFIG 0x00000400

struct in6_addr {
  union {
    UCHAR Byte[16];
    USHORT Word[8];
  } u;
};
using IN6_ADDR = in6_addr;
#define s6_addr u.Byte

struct sockaddr_in6 {
  ADDRESS_FAMILY sin6_family;
  USHORT sin6_port;
  ULONG sin6_flowinfo;
  IN6_ADDR sin6_addr;
  ULONG sin6_scope_id;
};
using SOCKADDR_IN6 = sockaddr_in6;
static_assert(sizeof(sockaddr_in6) == 28);

union SOCKADDR_INET {
  SOCKADDR_IN Ipv4;
  SOCKADDR_IN6 Ipv6;
  ADDRESS_FAMILY si_family;
};
static_assert(sizeof(SOCKADDR_INET) == 28);

struct ADDRINFOW {
  int ai_flags;
  int ai_family;
  int ai_socktype;
  int ai_protocol;
  SIZE_T ai_addrlen;
  PWSTR ai_canonname;
  sockaddr* ai_addr;
  ADDRINFOW* ai_next;
};
using PADDRINFOW = ADDRINFOW*;
static_assert(sizeof(ADDRINFOW) == 48);

INT WSAAPI GetAddrInfoW(PCWSTR node, PCWSTR service, const ADDRINFOW* hints, PADDRINFOW* result);
void WSAAPI FreeAddrInfoW(PADDRINFOW list);

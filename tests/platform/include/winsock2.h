// Sockets, for builds on other systems; layouts as on Windows. The functions have C++ names here, because the system's
// C library has others of the same C names.
#pragma once

#include <windows.h>

#define WSAAPI
#define INVALID_SOCKET (~SOCKET{0})
#define SOCKET_ERROR (-1)
#define AF_UNSPEC 0
#define AF_INET 2
#define AF_INET6 23
#define SOCK_STREAM 1
#define IPPROTO_TCP 6
#define SD_RECEIVE 0
#define SD_SEND 1
#define SD_BOTH 2
#define WSA_FLAG_OVERLAPPED 0x01
#define WSA_FLAG_NO_HANDLE_INHERIT 0x80
#define MAKEWORD(low, high) ((WORD)(((BYTE)(low)) | (((WORD)((BYTE)(high))) << 8)))

#define FD_READ_BIT 0
#define FD_WRITE_BIT 1
#define FD_CONNECT_BIT 4
#define FD_CLOSE_BIT 5
#define FD_MAX_EVENTS 10
#define FD_READ (1 << FD_READ_BIT)
#define FD_WRITE (1 << FD_WRITE_BIT)
#define FD_CONNECT (1 << FD_CONNECT_BIT)
#define FD_CLOSE (1 << FD_CLOSE_BIT)

#define WSAEACCES 10013
#define WSAEFAULT 10014
#define WSAEINVAL 10022
#define WSAEMFILE 10024
#define WSAEWOULDBLOCK 10035
#define WSAEALREADY 10037
#define WSAENOTSOCK 10038
#define WSAEOPNOTSUPP 10045
#define WSAEAFNOSUPPORT 10047
#define WSAENETUNREACH 10051
#define WSAECONNABORTED 10053
#define WSAECONNRESET 10054
#define WSAENOBUFS 10055
#define WSAEISCONN 10056
#define WSAENOTCONN 10057
#define WSAESHUTDOWN 10058
#define WSAETIMEDOUT 10060
#define WSAECONNREFUSED 10061
#define WSAEHOSTUNREACH 10065
#define WSASYSNOTREADY 10091
#define WSAVERNOTSUPPORTED 10092
#define WSANOTINITIALISED 10093
#define WSAHOST_NOT_FOUND 11001
#define WSATRY_AGAIN 11002
#define WSANO_RECOVERY 11003
#define WSANO_DATA 11004

using SOCKET = std::uintptr_t;
using GROUP = unsigned int;
using WSAEVENT = HANDLE;
using ADDRESS_FAMILY = USHORT;
using LPWSAPROTOCOL_INFOW = struct WSAPROTOCOL_INFOW*;

struct sockaddr {
  USHORT sa_family;
  CHAR sa_data[14];
};
using SOCKADDR = sockaddr;
using LPSOCKADDR = sockaddr*;
static_assert(sizeof(sockaddr) == 16);

struct in_addr {
  union {
    struct {
      UCHAR s_b1, s_b2, s_b3, s_b4;
    } S_un_b;
    ULONG S_addr;
  } S_un;
};
using IN_ADDR = in_addr;
#define s_addr S_un.S_addr

struct sockaddr_in {
  ADDRESS_FAMILY sin_family;
  USHORT sin_port;
  IN_ADDR sin_addr;
  CHAR sin_zero[8];
};
using SOCKADDR_IN = sockaddr_in;
static_assert(sizeof(sockaddr_in) == 16);

struct WSADATA {
  WORD wVersion;
  WORD wHighVersion;
  USHORT iMaxSockets;
  USHORT iMaxUdpDg;
  char* lpVendorInfo;
  char szDescription[257];
  char szSystemStatus[129];
};
using LPWSADATA = WSADATA*;
static_assert(sizeof(WSADATA) == 408);

struct WSANETWORKEVENTS {
  LONG lNetworkEvents;
  int iErrorCode[FD_MAX_EVENTS];
};
using LPWSANETWORKEVENTS = WSANETWORKEVENTS*;
static_assert(sizeof(WSANETWORKEVENTS) == 44);

int WSAAPI WSAStartup(WORD version, LPWSADATA data);
int WSAAPI WSACleanup();
int WSAAPI WSAGetLastError();
SOCKET WSAAPI WSASocketW(int family, int type, int protocol, LPWSAPROTOCOL_INFOW info, GROUP group, DWORD flags);
int WSAAPI WSAEventSelect(SOCKET socket, WSAEVENT event, LONG networkEvents);
int WSAAPI WSAEnumNetworkEvents(SOCKET socket, WSAEVENT event, LPWSANETWORKEVENTS networkEvents);
int WSAAPI connect(SOCKET socket, const sockaddr* address, int length);
int WSAAPI send(SOCKET socket, const char* buffer, int length, int flags);
int WSAAPI recv(SOCKET socket, char* buffer, int length, int flags);
int WSAAPI shutdown(SOCKET socket, int how);
int WSAAPI closesocket(SOCKET socket);
USHORT WSAAPI htons(USHORT number);
USHORT WSAAPI ntohs(USHORT number);
ULONG WSAAPI htonl(ULONG number);
ULONG WSAAPI ntohl(ULONG number);

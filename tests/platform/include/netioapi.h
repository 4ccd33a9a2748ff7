// Addresses of this machine and their changes, for builds on other systems; layouts as on Windows. The library looks
// the functions up when it needs them.
#pragma once

#include <ws2tcpip.h>

#define NETIOAPI_API_ WINAPI
#define ANY_SIZE 1

using NETIO_STATUS = DWORD;
using NET_LUID = ULONG64;
using NET_IFINDEX = ULONG;
using SCOPE_ID = ULONG;
enum NL_PREFIX_ORIGIN : int {};
enum NL_SUFFIX_ORIGIN : int {};
enum NL_DAD_STATE : int {
  IpDadStateInvalid = 0,
  IpDadStateTentative,
  IpDadStateDuplicate,
  IpDadStateDeprecated,
  IpDadStatePreferred
};
enum MIB_NOTIFICATION_TYPE : int {
  MibParameterNotification = 0,
  MibAddInstance,
  MibDeleteInstance,
  MibInitialNotification
};

struct MIB_UNICASTIPADDRESS_ROW {
  SOCKADDR_INET Address;
  NET_LUID InterfaceLuid;
  NET_IFINDEX InterfaceIndex;
  NL_PREFIX_ORIGIN PrefixOrigin;
  NL_SUFFIX_ORIGIN SuffixOrigin;
  ULONG ValidLifetime;
  ULONG PreferredLifetime;
  BYTE OnLinkPrefixLength;
  BOOLEAN SkipAsSource;
  NL_DAD_STATE DadState;
  SCOPE_ID ScopeId;
  LARGE_INTEGER CreationTimeStamp;
};
using PMIB_UNICASTIPADDRESS_ROW = MIB_UNICASTIPADDRESS_ROW*;
static_assert(sizeof(MIB_UNICASTIPADDRESS_ROW) == 80);

struct MIB_UNICASTIPADDRESS_TABLE {
  ULONG NumEntries;
  MIB_UNICASTIPADDRESS_ROW Table[ANY_SIZE];
};
using PMIB_UNICASTIPADDRESS_TABLE = MIB_UNICASTIPADDRESS_TABLE*;
static_assert(sizeof(MIB_UNICASTIPADDRESS_TABLE) == 88);

using PUNICAST_IPADDRESS_CHANGE_CALLBACK = VOID(NETIOAPI_API_*)(PVOID context, PMIB_UNICASTIPADDRESS_ROW row,
                                                                MIB_NOTIFICATION_TYPE type);

extern "C" {
NETIO_STATUS NETIOAPI_API_ NotifyUnicastIpAddressChange(ADDRESS_FAMILY family,
                                                        PUNICAST_IPADDRESS_CHANGE_CALLBACK callback, PVOID context,
                                                        BOOLEAN initialNotification, HANDLE* notification);
NETIO_STATUS NETIOAPI_API_ CancelMibChangeNotify2(HANDLE notification);
NETIO_STATUS NETIOAPI_API_ GetUnicastIpAddressTable(ADDRESS_FAMILY family, PMIB_UNICASTIPADDRESS_TABLE* table);
VOID NETIOAPI_API_ FreeMibTable(PVOID table);
}

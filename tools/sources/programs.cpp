// What programs are documented to read.
#include "sources/programs.h"

namespace kiv::tool {
namespace {

constexpr Program kPrograms[] = {
    {L"kiv.dll", L"" KIV_VERSION, L"the user's settings, as a connection: detection, PAC script, manual list",
     L"kiv: docs/reference/resolution.md"},
    {L"WinHTTP, default proxy", L"since Windows XP", L"WinHTTP for the machine",
     L"Microsoft Learn: WinHttpOpen, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY"},
    {L"WinHTTP, automatic proxy", L"since Windows 8.1", L"the settings of the system and of the user",
     L"Microsoft Learn: WinHttpOpen, WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY"},
    {L"Microsoft Edge", L"77 and later", L"its policies; else the user's settings",
     L"Microsoft Learn: Microsoft Edge policies, ProxySettings"},
    {L"Chrome", L"18 and later", L"its policies; else the user's settings",
     L"Chrome Enterprise policy list, ProxyMode and ProxySettings"},
    {L".NET HttpClient", L".NET Core 3.0 and later", L"environment variables; else the user's settings",
     L"Microsoft Learn: HttpClient.DefaultProxy"},
    {L"Python urllib", L"3.11", L"environment variables; else the user's settings, as values, without a PAC script",
     L"CPython: Lib/urllib/request.py, getproxies"},
    {L"curl", L"7.88", L"environment variables", L"curl manual page, ENVIRONMENT"},
    {L"git", L"2.39", L"http.proxy of its configuration; else environment variables",
     L"git-config manual page, http.proxy"},
    {L"Go net/http", L"1", L"environment variables", L"Go: golang.org/x/net/http/httpproxy"},
};

}  // namespace

std::span<const Program> knownPrograms() { return kPrograms; }

}  // namespace kiv::tool

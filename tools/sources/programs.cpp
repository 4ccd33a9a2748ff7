// What programs are documented to read.
#include "sources/programs.h"

namespace kiv::tool {
namespace {

// Documentation that does not say since when.
constexpr std::wstring_view kUnknown = L"version not known";

constexpr Program kPrograms[] = {
    {L"kiv.dll", L"" KIV_VERSION, L"the user's settings, as a connection: detection, PAC script, manual list",
     L"kiv: docs/reference/resolution.md"},
    {L"WinHTTP, default proxy", kUnknown, L"WinHTTP for the machine",
     L"Microsoft Learn: WinHttpOpen, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY"},
    {L"WinHTTP, automatic proxy", kUnknown, L"the settings of the system and of the user",
     L"Microsoft Learn: WinHttpOpen, WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY"},
    {L"Microsoft Edge", kUnknown, L"its policies; else the user's settings",
     L"Microsoft Learn: Microsoft Edge policies, ProxySettings"},
    {L"Chrome", kUnknown, L"its policies; else the user's settings",
     L"Chrome Enterprise policy list, ProxyMode and ProxySettings"},
    {L".NET HttpClient", kUnknown, L"environment variables; else the user's settings",
     L"Microsoft Learn: HttpClient.DefaultProxy"},
    {L"Python urllib", L"3.11", L"environment variables; else the user's settings, as values, without a PAC script",
     L"CPython: Lib/urllib/request.py, getproxies"},
    {L"pip", L"23.2", L"--proxy, which its configuration can give; else as Python urllib",
     L"pip --help, and requests: utils.py, get_environ_proxies"},
    {L"npm", L"11", L"proxy and https-proxy of its configuration; else environment variables",
     L"npm documentation: config, proxy and https-proxy"},
    {L"git", L"2.39", L"http.proxy of its configuration; else environment variables",
     L"git-config manual page, http.proxy"},
    {L"curl", L"7.88", L"--proxy; else environment variables", L"curl manual page, ENVIRONMENT"},
    {L"Go net/http", L"1.19", L"environment variables", L"Go: golang.org/x/net/http/httpproxy"},
    {L"Java", L"17",
     L"the properties http.proxyHost and https.proxyHost; Windows' settings only with java.net.useSystemProxies=true",
     L"OpenJDK: conf/net.properties"},
};

}  // namespace

std::span<const Program> knownPrograms() { return kPrograms; }

}  // namespace kiv::tool

// Calls every function of kiv.dll once, with something whose answer is known.
#include <string>
#include <string_view>

#include "checks/export_checks.h"
#include "checks/exported_functions.h"
#include "ground/ground.h"
#include "kiv/kiv.hpp"

namespace selfcheck {
namespace {

using kiv::Credential;
using kiv::HttpClient;
using kiv::LogRecord;
using kiv::ProxyConfig;
using kiv::SecureString;
using Function = ExportedFunction<Ground>;

constexpr int kOk = 200;

bool is(const wchar_t* text, std::wstring_view expected) { return text && text == expected; }

// What a C callback collects.
std::wstring& textOf(void* context) { return *static_cast<std::wstring*>(context); }
void keepMessage(void* context, const KivLog* log) { textOf(context) += KivLog_Message(log); }
void keepText(void* context, const wchar_t* text) { textOf(context) += text; }

using Logger = kiv::Logger;
Logger loggerTo(std::wstring& text) { return Logger(KivLogger_Construct(&text, keepMessage)); }

Credential someCredential() { return Credential(KivCred_Create(L"user", L"pass:word")); }
ProxyConfig someProxy() { return ProxyConfig(KivProxyConfig_Http(L"gate", 8080, someCredential().handle())); }
LogRecord someRecord() { return LogRecord(KivLog_CreateWarn(L"100%")); }
SecureString somePassword() { return SecureString(KivCred_Password(someCredential().handle())); }
HttpClient clientFor(const Ground& ground) {
  return HttpClient(KivHttpClient_Create(ground.url("/").c_str(), kAgent, 0));
}

bool isUser(const KivCred* cred) { return is(KivCred_Username(cred), L"user"); }
bool isGate(const KivProxyConfig* proxy) { return is(KivProxyConfig_Host(proxy), L"gate"); }
bool isWarning(const KivLog* log) { return KivLog_IsWarn(log) && is(KivLog_Message(log), L"100%"); }
bool isMovedFrom(const KivLog* log) { return KivLog_IsWarn(log) && is(KivLog_Message(log), L""); }

bool logs(void (*function)(const KivLogger*, const wchar_t*)) {
  std::wstring text;
  function(loggerTo(text).handle(), L"%ls");
  return text == L"%ls";
}

// Whether the predicate says yes of the one and no of the other.
bool tells(bool (*predicate)(const KivProxyConfig*), const ProxyConfig& one, const ProxyConfig& other) {
  return predicate(one.handle()) && !predicate(other.handle());
}
bool tells(bool (*predicate)(const KivLog*), const LogRecord& one, const LogRecord& other) {
  return predicate(one.handle()) && !predicate(other.handle());
}

// An application that accepts whatever it is asked to test.
KivProxyConfig* resolved(Logger& logger, ProxyConfig& preferred) {
  return KivProxyResolver_Resolve(
      L"http://target.test/", kAgent, L"", preferred.handle(), nullptr, &logger,
      [](const void*, KivProxyConfig*) { return 1; }, &logger,
      [](const void*, const wchar_t*) { return KivCred_None(); }, &logger,
      [](const void*, KivProxyConfig*) { return KivCred_None(); }, &logger,
      [](const void*, const void*) { return kOk; }, [](void*, KivCred* cred) { KivCred_Destruct(cred); },
      [](void*, KivProxyConfig*) {}, logger.handle(),
      [](const void* context) { return static_cast<KivLogger*>(const_cast<void*>(context)); });
}

constexpr Function kFunctions[] = {
    {"KivCred_Copy",
     [](Ground&) {
       Credential target(KivCred_None());
       KivCred_Copy(someCredential().handle(), target.handle());
       return isUser(target.handle());
     }},
    {"KivCred_CopyConstruct",
     [](Ground&) { return isUser(Credential(KivCred_CopyConstruct(someCredential().handle())).handle()); }},
    {"KivCred_Create", [](Ground&) { return isUser(Credential(KivCred_Create(L"user", L"")).handle()); }},
    {"KivCred_Destruct", [](Ground&) { return KivCred_Destruct(KivCred_None()), true; }},
    {"KivCred_IsNone", [](Ground&) { return KivCred_IsNone(nullptr) && !KivCred_IsNone(someCredential().handle()); }},
    {"KivCred_Move",
     [](Ground&) {
       Credential source = someCredential();
       Credential target(KivCred_None());
       KivCred_Move(source.handle(), target.handle());
       return isUser(target.handle()) && source.is_none();
     }},
    {"KivCred_MoveConstruct",
     [](Ground&) {
       Credential source = someCredential();
       return isUser(Credential(KivCred_MoveConstruct(source.handle())).handle()) && source.is_none();
     }},
    {"KivCred_None",
     [](Ground&) {
       const Credential none(KivCred_None());
       return none.handle() && none.is_none();
     }},
    {"KivCred_Password", [](Ground&) { return somePassword().view() == L"pass:word"; }},
    {"KivCred_Username", [](Ground&) { return is(KivCred_Username(someCredential().handle()), L"user"); }},

    // Without a target no prompt is shown.
    {"KivDialogAuthUi_ProxyAuthUi",
     [](Ground&) { return KivDialogAuthUi_ProxyAuthUi(nullptr, L"", nullptr) == nullptr; }},
    {"KivDialogAuthUi_ServerAuthUi",
     [](Ground&) { return KivDialogAuthUi_ServerAuthUi(nullptr, L"", nullptr) == nullptr; }},

    {"KivHttpClient_Create",
     [](Ground&) {
       std::wstring text;
       const HttpClient invalid(KivHttpClient_Create(L"socks5://host", kAgent, 0));
       return KivHttpClient_Head(invalid.handle(), loggerTo(text).handle()) == -1 && text == L"Invalid client.";
     }},
    {"KivHttpClient_Destruct",
     [](Ground&) { return KivHttpClient_Destruct(KivHttpClient_Create(L"http://host", kAgent, 0)), true; }},
    {"KivHttpClient_Get", [](Ground& ground) { return KivHttpClient_Get(clientFor(ground).handle(), nullptr) == kOk; }},
    {"KivHttpClient_Head",
     [](Ground& ground) { return KivHttpClient_Head(clientFor(ground).handle(), nullptr) == kOk; }},
    {"KivHttpClient_Move",
     [](Ground& ground) {
       HttpClient source = clientFor(ground);
       HttpClient target(L"http://host", kAgent);
       KivHttpClient_Move(source.handle(), target.handle());
       return source.head() == -1 && target.head() == kOk;
     }},
    {"KivHttpClient_MoveConstruct",
     [](Ground& ground) {
       HttpClient source = clientFor(ground);
       HttpClient target(KivHttpClient_MoveConstruct(source.handle()));
       return source.head() == -1 && target.head() == kOk;
     }},
    {"KivHttpClient_SetProxy",
     [](Ground& ground) {
       std::wstring text;
       HttpClient client = clientFor(ground);
       const ProxyConfig proxy = ProxyConfig::http(L"127.0.0.1", ground.port(Server::OpenProxy));
       KivHttpClient_SetProxy(client.handle(), proxy.handle());
       client.head(loggerTo(text));
       return text.find(L"\"Proxy\"") != std::wstring::npos;
     }},
    {"KivHttpClient_SetServerCred",
     [](Ground& ground) {
       HttpClient client = clientFor(ground);
       Credential cred = someCredential();
       KivHttpClient_SetServerCred(client.handle(), cred.handle());
       return cred.is_none();
     }},

    {"KivLogger_Construct",
     [](Ground&) {
       std::wstring text;
       const Logger logger(KivLogger_Construct(&text, keepMessage));
       logger.info(L"line");
       return text == L"line";
     }},
    {"KivLogger_Copy",
     [](Ground&) {
       std::wstring text;
       std::wstring other;
       Logger target = loggerTo(other);
       KivLogger_Copy(loggerTo(text).handle(), target.handle());
       target.info(L"line");
       return text == L"line" && other.empty();
     }},
    {"KivLogger_CopyConstruct",
     [](Ground&) {
       std::wstring text;
       Logger(KivLogger_CopyConstruct(loggerTo(text).handle())).info(L"line");
       return text == L"line";
     }},
    {"KivLogger_Debug", [](Ground&) { return logs(KivLogger_Debug); }},
    {"KivLogger_Destruct",
     [](Ground&) {
       std::wstring text;
       KivLogger_Destruct(KivLogger_Construct(&text, keepMessage));
       return text.empty();
     }},
    {"KivLogger_Error", [](Ground&) { return logs(KivLogger_Error); }},
    {"KivLogger_Info", [](Ground&) { return logs(KivLogger_Info); }},
    {"KivLogger_Move",
     [](Ground&) {
       std::wstring text;
       std::wstring other;
       Logger source = loggerTo(text);
       Logger target = loggerTo(other);
       KivLogger_Move(source.handle(), target.handle());
       target.info(L"line");
       return text == L"line" && other.empty();
     }},
    {"KivLogger_MoveConstruct",
     [](Ground&) {
       std::wstring text;
       Logger source = loggerTo(text);
       Logger(KivLogger_MoveConstruct(source.handle())).info(L"line");
       return text == L"line";
     }},
    {"KivLogger_Warn", [](Ground&) { return logs(KivLogger_Warn); }},

    {"KivLog_Copy",
     [](Ground&) {
       LogRecord target = LogRecord::error(L"other");
       KivLog_Copy(someRecord().handle(), target.handle());
       return isWarning(target.handle());
     }},
    {"KivLog_CopyConstruct",
     [](Ground&) { return isWarning(LogRecord(KivLog_CopyConstruct(someRecord().handle())).handle()); }},
    {"KivLog_CreateDebug", [](Ground&) { return LogRecord(KivLog_CreateDebug(L"line")).is_debug(); }},
    {"KivLog_CreateError", [](Ground&) { return LogRecord(KivLog_CreateError(L"line")).is_error(); }},
    {"KivLog_CreateInfo", [](Ground&) { return LogRecord(KivLog_CreateInfo(L"line")).is_info(); }},
    {"KivLog_CreateWarn", [](Ground&) { return LogRecord(KivLog_CreateWarn(L"line")).is_warn(); }},
    {"KivLog_Destruct", [](Ground&) { return KivLog_Destruct(KivLog_CreateInfo(L"line")), true; }},
    {"KivLog_IsDebug", [](Ground&) { return tells(KivLog_IsDebug, LogRecord::debug(L""), LogRecord::info(L"")); }},
    {"KivLog_IsError", [](Ground&) { return tells(KivLog_IsError, LogRecord::error(L""), LogRecord::info(L"")); }},
    {"KivLog_IsInfo", [](Ground&) { return tells(KivLog_IsInfo, LogRecord::info(L""), LogRecord::debug(L"")); }},
    {"KivLog_IsWarn", [](Ground&) { return tells(KivLog_IsWarn, LogRecord::warn(L""), LogRecord::info(L"")); }},
    {"KivLog_Message", [](Ground&) { return is(KivLog_Message(someRecord().handle()), L"100%"); }},
    {"KivLog_Move",
     [](Ground&) {
       LogRecord source = someRecord();
       LogRecord target = LogRecord::error(L"other");
       KivLog_Move(source.handle(), target.handle());
       return isWarning(target.handle()) && isMovedFrom(source.handle());
     }},
    {"KivLog_MoveConstruct",
     [](Ground&) {
       LogRecord source = someRecord();
       return isWarning(LogRecord(KivLog_MoveConstruct(source.handle())).handle()) && isMovedFrom(source.handle());
     }},

    {"KivProxyConfig_Copy",
     [](Ground&) {
       ProxyConfig target = ProxyConfig::direct();
       KivProxyConfig_Copy(someProxy().handle(), target.handle());
       return isGate(target.handle()) && target.has_cred();
     }},
    {"KivProxyConfig_CopyConstruct",
     [](Ground&) { return isGate(ProxyConfig(KivProxyConfig_CopyConstruct(someProxy().handle())).handle()); }},
    {"KivProxyConfig_Create",
     [](Ground&) {
       const ProxyConfig config(KivProxyConfig_Create(L" HTTPS ", L"gate", -1, nullptr));
       return config.is_https() && isGate(config.handle());
     }},
    {"KivProxyConfig_Cred",
     [](Ground&) { return isUser(Credential(KivProxyConfig_Cred(someProxy().handle())).handle()); }},
    {"KivProxyConfig_Destruct", [](Ground&) { return KivProxyConfig_Destruct(KivProxyConfig_Direct()), true; }},
    {"KivProxyConfig_Direct", [](Ground&) { return ProxyConfig(KivProxyConfig_Direct()).is_direct(); }},
    {"KivProxyConfig_HasCred",
     [](Ground&) { return tells(KivProxyConfig_HasCred, someProxy(), ProxyConfig::http(L"gate")); }},
    {"KivProxyConfig_HasExplicitPort",
     [](Ground&) { return tells(KivProxyConfig_HasExplicitPort, someProxy(), ProxyConfig::http(L"gate")); }},
    {"KivProxyConfig_Host", [](Ground&) { return is(KivProxyConfig_Host(someProxy().handle()), L"gate"); }},
    {"KivProxyConfig_Http", [](Ground&) { return ProxyConfig(KivProxyConfig_Http(L"gate", 1, nullptr)).is_http(); }},
    {"KivProxyConfig_Https", [](Ground&) { return ProxyConfig(KivProxyConfig_Https(L"gate", 1, nullptr)).is_https(); }},
    {"KivProxyConfig_IsDirect",
     [](Ground&) { return tells(KivProxyConfig_IsDirect, ProxyConfig::direct(), someProxy()); }},
    {"KivProxyConfig_IsHttp",
     [](Ground&) { return tells(KivProxyConfig_IsHttp, someProxy(), ProxyConfig::https(L"gate")); }},
    {"KivProxyConfig_IsHttps",
     [](Ground&) { return tells(KivProxyConfig_IsHttps, ProxyConfig::https(L"gate"), someProxy()); }},
    {"KivProxyConfig_IsNone", [](Ground&) { return tells(KivProxyConfig_IsNone, ProxyConfig::none(), someProxy()); }},
    {"KivProxyConfig_IsSocks4",
     [](Ground&) {
       return tells(KivProxyConfig_IsSocks4, ProxyConfig::socks4(L"gate"), ProxyConfig::socks5(L"gate"));
     }},
    {"KivProxyConfig_IsSocks5",
     [](Ground&) {
       return tells(KivProxyConfig_IsSocks5, ProxyConfig::socks5(L"gate"), ProxyConfig::socks4(L"gate"));
     }},
    {"KivProxyConfig_IsValid",
     [](Ground&) { return tells(KivProxyConfig_IsValid, someProxy(), ProxyConfig::direct()); }},
    {"KivProxyConfig_Move",
     [](Ground&) {
       ProxyConfig source = someProxy();
       ProxyConfig target = ProxyConfig::direct();
       KivProxyConfig_Move(source.handle(), target.handle());
       return isGate(target.handle()) && source.is_http() && source.host().empty();
     }},
    {"KivProxyConfig_MoveConstruct",
     [](Ground&) {
       ProxyConfig source = someProxy();
       return isGate(ProxyConfig(KivProxyConfig_MoveConstruct(source.handle())).handle()) && source.host().empty();
     }},
    {"KivProxyConfig_None",
     [](Ground&) {
       const ProxyConfig none(KivProxyConfig_None());
       return none.handle() && none.is_none();
     }},
    {"KivProxyConfig_Parse",
     [](Ground&) {
       const ProxyConfig config(KivProxyConfig_Parse(L" SOCKS://日本語.jp:1081/ignored ", nullptr));
       return config.is_socks5() && config.host() == L"xn--wgv71a119e.jp" && config.port() == 1081;
     }},
    {"KivProxyConfig_Port",
     [](Ground&) {
       const ProxyConfig config = ProxyConfig::socks4(L"gate");
       return KivProxyConfig_Port(config.handle(), 0) == -1 && KivProxyConfig_Port(config.handle(), 1) == 1080;
     }},
    {"KivProxyConfig_Scheme",
     [](Ground&) { return is(KivProxyConfig_Scheme(ProxyConfig::socks4(L"gate").handle()), L"socks4"); }},
    {"KivProxyConfig_Socks4",
     [](Ground&) { return ProxyConfig(KivProxyConfig_Socks4(L"gate", 1, nullptr)).is_socks4(); }},
    {"KivProxyConfig_Socks5",
     [](Ground&) { return ProxyConfig(KivProxyConfig_Socks5(L"gate", 1, nullptr)).is_socks5(); }},
    {"KivProxyConfig_ToString",
     [](Ground&) {
       std::wstring text;
       KivProxyConfig_ToString(someProxy().handle(), 1, 1, &text, keepText);
       return text == L"http://user:pass:word@gate:8080";
     }},

    {"KivProxyResolver_Resolve",
     [](Ground&) {
       std::wstring text;
       Logger logger = loggerTo(text);
       ProxyConfig preferred = someProxy();
       const ProxyConfig found(resolved(logger, preferred));
       return isGate(found.handle()) && text.ends_with(L"END: ProxyResolver");
     }},

    {"KivSecStr_CStr", [](Ground&) { return is(KivSecStr_CStr(somePassword().handle()), L"pass:word"); }},
    {"KivSecStr_Destruct",
     [](Ground&) { return KivSecStr_Destruct(KivCred_Password(someCredential().handle())), true; }},
    {"KivSecStr_MoveConstruct",
     [](Ground&) {
       SecureString source = somePassword();
       const SecureString moved(KivSecStr_MoveConstruct(source.handle()));
       return moved.view() == L"pass:word" && !source.c_str();
     }},
    {"KivSecStr_Size", [](Ground&) { return KivSecStr_Size(somePassword().handle()) == 9; }},
};

}  // namespace

Finding callKivExports(Ground& ground) { return checkExports<Ground>(L"kiv.dll", kFunctions, ground); }

}  // namespace selfcheck

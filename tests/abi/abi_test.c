/* A plain C11 application over the shipped kiv.dll: its exports and imports, and one round through every family.
 *
 *   abi_test [--without-prompts]    where the system's own prompt would wait for somebody
 */
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <windows.h>

#include "../plain_callbacks.h"
#include "check.h"
#include "exports.h"
#include "kiv/kiv.h"
#include "module_tables.h"

static const char* const expected_exports[] = {
#define NAME(function) #function,
    KIV_EXPORTS(NAME)
#undef NAME
};
enum { EXPECTED_EXPORTS = sizeof expected_exports / sizeof expected_exports[0] };

static void exports_exactly_the_public_functions(void) {
  CHECK(EXPECTED_EXPORTS == 76);
  check_exports(L"kiv.dll", expected_exports, EXPECTED_EXPORTS);
}

static void imports_system_libraries_only(void) { check_imports(L"kiv.dll"); }

/* ---- One round through every family. */

/* What a callback collects: lines, joined. */
struct text {
  wchar_t characters[8192];
};

static void append(struct text* text, const wchar_t* more) {
  if (wcslen(text->characters) + wcslen(more) < sizeof text->characters / sizeof text->characters[0]) {
    wcscat(text->characters, more);
  }
}

static void keep_line(void* context, const KivLog* log) {
  append(context, KivLog_IsError(log) ? L"E " : KivLog_IsWarn(log) ? L"W " : KivLog_IsInfo(log) ? L"I " : L"D ");
  append(context, KivLog_Message(log));
  append(context, L"\n");
}

static void keep_text(void* context, const wchar_t* text) { append(context, text); }

static void log_records_and_loggers(void) {
  KivLog* log = KivLog_CreateWarn(L"100%");
  KivLog* copy = KivLog_CopyConstruct(log);
  KivLog* moved = KivLog_MoveConstruct(log);
  CHECK(KivLog_IsWarn(log) && wcscmp(KivLog_Message(log), L"") == 0);
  CHECK(KivLog_IsWarn(copy) && wcscmp(KivLog_Message(copy), L"100%") == 0);
  CHECK(KivLog_IsWarn(moved) && wcscmp(KivLog_Message(moved), L"100%") == 0);
  KivLog_Destruct(log);
  KivLog_Destruct(copy);
  KivLog_Destruct(moved);

  struct text lines = {L""};
  KivLogger* logger = KivLogger_Construct(&lines, keep_line);
  KivLogger* other = KivLogger_CopyConstruct(logger);
  KivLogger_Error(logger, L"a");
  KivLogger_Warn(logger, L"b");
  KivLogger_Info(other, L"c");
  KivLogger_Debug(other, L"%ls");
  CHECK(wcscmp(lines.characters, L"E a\nW b\nI c\nD %ls\n") == 0);
  KivLogger_Destruct(logger);
  KivLogger_Destruct(other);
}

static void credentials_and_protected_strings(void) {
  KivCred* cred = KivCred_Create(L"user", L"pass:word");
  CHECK(!KivCred_IsNone(cred) && wcscmp(KivCred_Username(cred), L"user") == 0);
  KivSecStr* password = KivCred_Password(cred);
  CHECK(KivSecStr_Size(password) == 9 && wcscmp(KivSecStr_CStr(password), L"pass:word") == 0);
  KivSecStr* moved = KivSecStr_MoveConstruct(password);
  CHECK(KivSecStr_CStr(password) == NULL && KivSecStr_Size(password) == 9);
  CHECK(wcscmp(KivSecStr_CStr(moved), L"pass:word") == 0);
  KivSecStr_Destruct(password);
  KivSecStr_Destruct(moved);
  KivCred_Destruct(cred);
  CHECK(KivCred_IsNone(NULL));
}

static void proxy_configurations(void) {
  KivCred* cred = KivCred_Create(L"u", L"p");
  KivProxyConfig* config = KivProxyConfig_Parse(L" SOCKS://日本語.jp:1081/ignored ", cred);
  CHECK(KivProxyConfig_IsSocks5(config) && KivProxyConfig_IsValid(config));
  CHECK(KivProxyConfig_Port(config, 0) == 1081 && KivProxyConfig_HasExplicitPort(config));
  struct text text = {L""};
  KivProxyConfig_ToString(config, 1, 1, &text, keep_text);
  CHECK(wcscmp(text.characters, L"socks5://u:p@xn--wgv71a119e.jp:1081") == 0);
  KivProxyConfig* created = KivProxyConfig_Create(L" HTTPS ", L"gate", -1, NULL);
  CHECK(KivProxyConfig_IsHttps(created) && KivProxyConfig_Port(created, 1) == 443);
  KivProxyConfig* too_large = KivProxyConfig_Parse(L"h:99999999999", NULL);
  CHECK(too_large != NULL && KivProxyConfig_IsNone(too_large));
  KivProxyConfig_Destruct(too_large);
  KivProxyConfig_Destruct(created);
  KivProxyConfig_Destruct(config);
  KivCred_Destruct(cred);
}

static void the_client_reports_what_fails(void) {
  struct text lines = {L""};
  KivLogger* logger = KivLogger_Construct(&lines, keep_line);
  KivHttpClient* invalid = KivHttpClient_Create(L"socks5://h", L"agent", 0);
  CHECK(KivHttpClient_Head(invalid, logger) == -1);
  CHECK(wcscmp(lines.characters, L"E Invalid client.\n") == 0);
  /* Nothing listens on port 1 of this machine. */
  KivHttpClient* client = KivHttpClient_Create(L"http://127.0.0.1:1/", L"agent", 0);
  CHECK(KivHttpClient_Get(client, logger) == -1);
  CHECK(wcsstr(lines.characters, L"D {\"Server\": {\"URL\": \"http://127.0.0.1:1\"}, \"User Agent\": \"agent\"}\n"));
  CHECK(wcsstr(lines.characters, L" failed. ErrorCode = 12029\n"));
  CHECK(KivHttpClient_Head(NULL, logger) == -1);
  KivHttpClient_Destruct(client);
  KivHttpClient_Destruct(invalid);
  KivLogger_Destruct(logger);
}

/* The stand-in for the system's prompt (credui.dll next to this program) answers with these. */
static void prompts_give_protected_credentials(void) {
  KivCred* cred = KivDialogAuthUi_ServerAuthUi(L"http://server/", L"", NULL);
  CHECK(cred != NULL && !KivCred_IsNone(cred));
  CHECK(KivCred_Username(cred) && wcscmp(KivCred_Username(cred), L"サーバー認証") == 0);
  KivSecStr* password = KivCred_Password(cred);
  CHECK(KivSecStr_CStr(password) &&
        wcscmp(KivSecStr_CStr(password), L"下記サーバーの認証情報を入力してください。\n\nhttp://server/") == 0);
  KivSecStr_Destruct(password);
  KivCred_Destruct(cred);

  cred = KivDialogAuthUi_ProxyAuthUi(L"gate:1", L"detail", NULL);
  CHECK(KivCred_Username(cred) && wcscmp(KivCred_Username(cred), L"プロキシ認証（detail）") == 0);
  KivCred_Destruct(cred);
  CHECK(KivDialogAuthUi_ProxyAuthUi(NULL, L"", NULL) == NULL);
}

static int answer_204(const void* client, const void* log_context) {
  (void)client, (void)log_context;
  return 204;
}
static void drop_cred(void* client, KivCred* cred) {
  (void)client;
  KivCred_Destruct(cred);
}
static void keep_proxy(void* client, KivProxyConfig* proxy) { KivProxyConfig_Copy(proxy, client); }
static KivLogger* logger_of(const void* context) { return (KivLogger*)context; }

static void a_resolution_hands_back_the_first_that_works(void) {
  struct text lines = {L""};
  KivLogger* logger = KivLogger_Construct(&lines, keep_line);
  KivProxyConfig* preferred = KivProxyConfig_Http(L"gate", 8080, NULL);
  KivProxyConfig* installed = KivProxyConfig_None();
  KivProxyConfig* found = KivProxyResolver_Resolve(L"http://target/", L"agent", L"", preferred, NULL, &lines, keep_all,
                                                   &lines, no_server_cred, &lines, no_proxy_cred, installed, answer_204,
                                                   drop_cred, keep_proxy, logger, logger_of);
  CHECK(found != NULL && found != preferred && KivProxyConfig_IsHttp(found));
  CHECK(wcscmp(KivProxyConfig_Host(found), L"gate") == 0 && KivProxyConfig_Port(found, 0) == 8080);
  CHECK(wcscmp(KivProxyConfig_Host(installed), L"gate") == 0);
  CHECK(wcsncmp(lines.characters, L"I BEGIN: ProxyResolver\n", 23) == 0);
  CHECK(wcsstr(lines.characters, L"I Proxy http://gate:8080 found.\nI END: ProxyResolver\n"));
  KivProxyConfig_Destruct(found);
  KivProxyConfig_Destruct(installed);
  KivProxyConfig_Destruct(preferred);
  KivLogger_Destruct(logger);
}

/* A long text must neither crash the application, on the stack that Windows gives by default, nor keep it waiting. */
static void a_mebibyte_of_text_is_read_within_a_second(void) {
  enum { LENGTH = 1 << 20 };
  static const wchar_t* const repeated[] = {L"a",    L" ",      L":",      L"*a", L"a;", L"1",
                                            L"h:1;", L"\x3000", L"\x00ad", L"/",  L"é."};
  for (size_t i = 0; i < sizeof repeated / sizeof repeated[0]; ++i) {
    wchar_t* text = calloc(LENGTH + 1, sizeof *text);
    for (size_t at = 0; at < LENGTH; ++at) text[at] = repeated[i][at % wcslen(repeated[i])];
    const ULONGLONG start = GetTickCount64();
    KivProxyConfig* config = KivProxyConfig_Parse(text, NULL);
    const ULONGLONG parsed = GetTickCount64();
    KivHttpClient* client = KivHttpClient_Create(text, text, 0);
    const ULONGLONG created = GetTickCount64();
    KivProxyConfig* by_word = KivProxyConfig_Create(text, text, 1, NULL);
    KivCred* cred = KivCred_Create(text, text);
    const ULONGLONG end = GetTickCount64();
    if (end - start > 200) {
      fprintf(stderr, "text %u: parse %u ms, client %u ms, rest %u ms\n", (unsigned)i, (unsigned)(parsed - start),
              (unsigned)(created - parsed), (unsigned)(end - created));
    }
    CHECK(config != NULL && client != NULL && by_word != NULL && cred != NULL);
    KivCred_Destruct(cred);
    KivProxyConfig_Destruct(by_word);
    KivHttpClient_Destruct(client);
    KivProxyConfig_Destruct(config);
    free(text);
  }
}

int main(int count, char** arguments) {
  const int prompts = count < 2 || strcmp(arguments[1], "--without-prompts") != 0;
  exports_exactly_the_public_functions();
  imports_system_libraries_only();
  log_records_and_loggers();
  credentials_and_protected_strings();
  proxy_configurations();
  the_client_reports_what_fails();
  if (prompts) prompts_give_protected_credentials();
  a_resolution_hands_back_the_first_that_works();
  a_mebibyte_of_text_is_read_within_a_second();
  return report_checks();
}

/* Counts threads while a resolution runs whose test callback sends no request, so that WinHTTP has no work for threads
 * of its own.
 *
 * This shows that from the call to its return no thread has started in the process, and that in each callback there are
 * as many as before. It does not show who started one, if any has: this is why the first resolution, with which the
 * system loads and starts what reading its settings needs, does not count. Nor does it tell of a thread whose creator
 * asks for no notification of the modules. What requests do is not shown: WinHTTP answers them on threads of its own.
 */
#include <stddef.h>

#include "kiv/kiv.h"
#include "observer.h"

struct application {
  KivLogger* logger;
  int tests;
  int callbacks;
  int least;
  int most;
};

static void look(const void* context) {
  struct application* self = (struct application*)context;
  const int threads = process_threads();
  ++self->callbacks;
  if (self->least == 0 || threads < self->least) self->least = threads;
  if (threads > self->most) self->most = threads;
}

static void take_line(void* context, const KivLog* log) {
  (void)log;
  look(context);
}
static int filter(const void* context, KivProxyConfig* candidate) {
  (void)candidate;
  look(context);
  return 1;
}
static KivCred* server_cred(const void* context, const wchar_t* url) {
  (void)url;
  look(context);
  return KivCred_None();
}
static KivCred* proxy_cred(const void* context, KivProxyConfig* proxy) {
  (void)proxy;
  look(context);
  return KivCred_None();
}
static int test_connection(const void* client, const void* context) {
  static const int answers[] = {407, 401, 200};
  (void)context;
  look(client);
  return answers[((struct application*)client)->tests++ % 3];
}
static void set_server_cred(void* client, KivCred* cred) {
  KivCred_Destruct(cred);
  look(client);
}
static void set_proxy(void* client, KivProxyConfig* proxy) {
  (void)proxy;
  look(client);
}
static KivLogger* get_logger(const void* context) {
  look(context);
  return ((const struct application*)context)->logger;
}

static struct application resolve(void) {
  struct application self = {0};
  self.logger = KivLogger_Construct(&self, take_line);
  KivProxyConfig* preferred = KivProxyConfig_Http(L"gate", 8080, NULL);
  KivProxyConfig* found = KivProxyResolver_Resolve(L"http://target/", L"threads", NULL, preferred, NULL, &self, filter,
                                                   &self, server_cred, &self, proxy_cred, &self, test_connection,
                                                   set_server_cred, set_proxy, &self, get_logger);
  CHECK(KivProxyConfig_IsHttp(found));
  KivProxyConfig_Destruct(found);
  KivProxyConfig_Destruct(preferred);
  KivLogger_Destruct(self.logger);
  return self;
}

static void do_nothing(void* context) { (void)context; }

static void a_thread_that_starts_is_counted(void) {
  const int started = started_threads();
  on_new_thread(do_nothing, NULL);
  CHECK(started_threads() == started + 1);
}

static void a_resolution_starts_no_thread(void) {
  resolve();
  const int threads = process_threads();
  const int started = started_threads();
  const struct application seen = resolve();
  CHECK(seen.callbacks >= 12);
  CHECK(seen.least == threads);
  CHECK(seen.most == threads);
  CHECK(started_threads() == started);
}

int main(void) {
  begin_case("threads");
  a_thread_that_starts_is_counted();
  a_resolution_starts_no_thread();
  return report_checks();
}

// The question to a proxy, and how its answer is read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "environment/log_on.h"
#include "environment/proxy_question.h"

namespace kiv::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST(QuestionFor, AsksForATunnelOrAResource) {
  const struct {
    const wchar_t* url;
    const char* line;
    const char* host;
  } cases[] = {
      {L"https://host/a?b", "CONNECT host:443 HTTP/1.1\r\n", "Host: host:443\r\n"},
      {L"https://host:8443", "CONNECT host:8443 HTTP/1.1\r\n", "Host: host:8443\r\n"},
      {L"http://host/a?b", "HEAD http://host:80/a?b HTTP/1.1\r\n", "Host: host:80\r\n"},
      {L"http://host:81", "HEAD http://host:81/ HTTP/1.1\r\n", "Host: host:81\r\n"},
      {L"http://host/a b\r\nX y", "HEAD http://host:80/a%20b%0D%0AX%20y HTTP/1.1\r\n", ""},
  };
  for (const auto& [url, line, host] : cases) {
    const std::string question = questionFor(url, L"agent\r\nX: y");
    EXPECT_THAT(question, StartsWith(line));
    EXPECT_THAT(question, HasSubstr(host));
    EXPECT_THAT(question, HasSubstr("User-Agent: agent  X: y\r\n"));
    EXPECT_THAT(question, Not(HasSubstr("Authorization")));
  }
}

TEST(QuestionFor, IsEmptyForAHostThatCannotBeSent) {
  EXPECT_EQ(questionFor(L"https://a\r\nb/", L""), "");
  EXPECT_EQ(questionFor(L"https://a b/", L""), "");
}

TEST(ReadAnswer, KnowsTheStatus) {
  const struct {
    const char* head;
    int status;
  } cases[] = {
      {"HTTP/1.1 200 OK\r\n", 200},
      {"HTTP/1.0 407\r\n", 407},
      {"HTTP/1.1 banana\r\n", 0},
      {"HTTP/1.1", 0},
      {"SSH-2.0 200\r\n", 0},
      {"HTTP/1.1 20", 0},
      {"", 0},
  };
  for (const auto& [head, status] : cases) EXPECT_EQ(readAnswer(head).status, status) << head;
}

TEST(ReadAnswer, FindsTheSchemesOf407) {
  EXPECT_THAT(readAnswer("HTTP/1.1 407 No\r\nproxy-authenticate: Negotiate\r\nProxy-Authenticate: NTLM\r\n"
                         "Proxy-Authenticate:Basic realm=\"a, Digest b\"\r\nX: y")
                  .schemes,
              ElementsAre(L"Negotiate", L"NTLM", L"Basic"));
  EXPECT_THAT(
      readAnswer("HTTP/1.1 407 No\r\nProxy-Authenticate: Digest realm=\"x\\\", NTLM\", nonce=1, Basic realm=y").schemes,
      ElementsAre(L"Digest", L"Basic"));
  EXPECT_THAT(readAnswer("HTTP/1.1 407 No\r\n").schemes, IsEmpty());
  EXPECT_THAT(readAnswer("HTTP/1.1 200 OK\r\nProxy-Authenticate: NTLM\r\n").schemes, IsEmpty());
}

TEST(ReadAnswer, TakesNothingForASchemeThatIsNone) {
  EXPECT_THAT(readAnswer("HTTP/1.1 407 No\r\nProxy-Authenticate: \x1B[2J, =, \"NTLM\", a=b\r\n").schemes, IsEmpty());
  EXPECT_THAT(readAnswer("HTTP/1.1 407 No\r\nProxy-Authenticate: " + std::string(100, 'x') + "\r\n").schemes,
              IsEmpty());
}

TEST(BestLogOn, PrefersSchemesWithoutAPassword) {
  EXPECT_EQ(bestLogOn({L"Basic", L"ntlm", L"NEGOTIATE"}), LogOn::Negotiate);
  EXPECT_EQ(bestLogOn({L"NTLM", L"Basic"}), LogOn::Ntlm);
  EXPECT_EQ(bestLogOn({L"Basic"}), LogOn::Basic);
  EXPECT_EQ(bestLogOn({L"Bearer"}), LogOn::None);
  EXPECT_EQ(bestLogOn({}), LogOn::None);
}

TEST(LogOnRemarks, SayWhoCanLogOn) {
  const auto remarks = logOnRemarks(L"http://gate:80", {L"Negotiate", L"Basic", L"Bearer"});
  ASSERT_EQ(remarks.size(), 4u);
  EXPECT_THAT(remarks[0], HasSubstr(L"http://gate:80 requires credentials (407), by Negotiate, Basic, Bearer"));
  EXPECT_THAT(remarks[1], HasSubstr(L"curl.exe -U : --proxy-negotiate"));
  EXPECT_THAT(remarks[2], HasSubstr(L"most programs"));
  EXPECT_THAT(remarks[3], HasSubstr(L"no program that"));
}

}  // namespace
}  // namespace kiv::tool

// What SOCKS proxies answer: any bytes are read to an end, however they are cut into pieces.
#include <algorithm>

#include "fuzz/fuzz_input.h"
#include "network/sockets.h"
#include "network/socks_dialogue.h"

using namespace kiv;

namespace {

struct Ended {
  std::size_t said = 0;
  bool isFinished = false;
  DWORD error = 0;
  bool operator==(const Ended&) const = default;
};

Ended talk(session::RouteKind version, const std::uint8_t* bytes, std::size_t count, std::size_t piece) {
  session::SocksDialogue dialogue(version, {.name = "example.org", .address = {}, .port = 443}, std::nullopt);
  Ended ended;
  for (std::size_t at = 0; at < count; at += piece) {
    dialogue.receive(bytes + at, std::min(piece, count - at));
    ended.said += dialogue.takeOutput().size();
  }
  ended.isFinished = dialogue.isFinished();
  ended.error = dialogue.error();
  return ended;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const auto version : {session::RouteKind::Socks4, session::RouteKind::Socks5}) {
    const Ended whole = talk(version, data, size, size + 1);
    fuzz::require(talk(version, data, size, 1) == whole, "the pieces do not matter");
    fuzz::require(whole.isFinished || size < 2 + 4 + 1 + 255 + 2, "it ends after a bounded answer");
    fuzz::require(whole.isFinished || whole.error == 0, "only one that has ended has failed");
    fuzz::require(whole.said < 100, "what is said is bounded");
  }
  return 0;
}

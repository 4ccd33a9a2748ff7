// The same in C++17, over kiv/session.hpp: ends with the status that the exception carries.
#include <kiv/session.hpp>

int main() {
  kiv::SessionOptions options;
  options.test = kiv::SessionTest::Connect;
  options.filter = [](std::wstring_view) { return true; };
  try {
    kiv::Session session(L"consumer", std::move(options));
    session.resolve(L"not a URL");
  } catch (const kiv::SessionError& failure) {
    return static_cast<int>(failure.status());
  }
  return 101;
}

// TLS on the server's side of a connection, by BearSSL.
#include <bearssl.h>

#include <array>
#include <vector>

#include "ground/tls_stream.h"

namespace selfcheck {
namespace {

class BearSslStream : public Stream {
 public:
  BearSslStream(Stream& below, Certificate certificate)
      : key_(bytes(keyOfCertificates())), certificate_(bytes(bytesOf(certificate))) {
    // TLS 1.2 with ECDHE_ECDSA_WITH_AES_128_GCM_SHA256, which every Windows since 7 has.
    br_ssl_server_init_minf2g(&server_, &chain_, 1, &privateKey_);
    br_ssl_engine_set_buffer(&server_.eng, buffer_.data(), buffer_.size(), 1);
    br_ssl_server_reset(&server_);
    br_sslio_init(&io_, &server_.eng, readBelow, &below, writeBelow, &below);
  }
  std::size_t read(std::span<char> buffer) override {
    const int size = br_sslio_read(&io_, buffer.data(), buffer.size());
    return size > 0 ? static_cast<std::size_t>(size) : 0;
  }

  bool write(std::string_view bytes) override {
    return br_sslio_write_all(&io_, bytes.data(), bytes.size()) == 0 && br_sslio_flush(&io_) == 0;
  }

 private:
  // BearSSL takes what it only reads as what it may change.
  static std::vector<unsigned char> bytes(std::span<const unsigned char> source) {
    return {source.begin(), source.end()};
  }

  static int readBelow(void* below, unsigned char* data, std::size_t size) {
    const std::size_t got = static_cast<Stream*>(below)->read({reinterpret_cast<char*>(data), size});
    return got == 0 ? -1 : static_cast<int>(got);
  }

  static int writeBelow(void* below, const unsigned char* data, std::size_t size) {
    const bool written = static_cast<Stream*>(below)->write({reinterpret_cast<const char*>(data), size});
    return written ? static_cast<int>(size) : -1;
  }

  std::vector<unsigned char> key_;
  std::vector<unsigned char> certificate_;
  br_x509_certificate chain_{certificate_.data(), certificate_.size()};
  br_ec_private_key privateKey_{BR_EC_secp256r1, key_.data(), key_.size()};
  br_ssl_server_context server_{};
  br_sslio_context io_{};
  std::array<unsigned char, BR_SSL_BUFSIZE_BIDI> buffer_{};
};

}  // namespace

bool hasTls() { return true; }

std::unique_ptr<Stream> openTls(Stream& below, Certificate certificate) {
  return std::make_unique<BearSslStream>(below, certificate);
}

}  // namespace selfcheck

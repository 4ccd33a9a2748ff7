#!/usr/bin/env bash
# Makes the certificates of kiv-selfcheck's servers anew: selfcheck/ground/certificates.cpp, which is kept with the sources
# so that every build gives the same program. Their key is no secret: nobody trusts what it signs.
#
#   ./scripts/certificates.sh
. "$(dirname "$0")/lib.sh"

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
openssl ecparam -name prime256v1 -genkey -noout -out key.pem

# certificate FILE NAMES FROM TO: signed with its own key.
certificate() {
  : >"$1.index"
  cat >"$1.conf" <<END
[ca]
default_ca = one
[one]
database = $1.index
new_certs_dir = .
rand_serial = yes
default_md = sha256
policy = any
x509_extensions = extensions
[any]
commonName = supplied
[extensions]
basicConstraints = critical, CA:FALSE
extendedKeyUsage = serverAuth
subjectAltName = $2
END
  openssl req -new -key key.pem -subj "/CN=kiv-selfcheck" -out "$1.request" 2>/dev/null
  openssl ca -batch -selfsign -keyfile key.pem -in "$1.request" -config "$1.conf" -startdate "$3" -enddate "$4" -notext \
    -out "$1.pem" 2>/dev/null
  openssl x509 -in "$1.pem" -outform DER -out "$1.der"
}

ours='DNS:localhost, DNS:*.test, IP:127.0.0.1, IP:::1'
certificate expired "$ours" 20190101000000Z 20200101000000Z
certificate other_name 'DNS:elsewhere.invalid' 20200101000000Z 20491231235959Z
certificate untrusted "$ours" 20200101000000Z 20491231235959Z

# array NAME: the bytes whose digits it reads, for clang-format to lay out.
array() {
  local digits
  digits=$(tr -cd '0-9a-f')
  printf 'constexpr std::array<unsigned char, %s> %s = {' $((${#digits} / 2)) "$1"
  sed 's/../0x&, /g' <<<"$digits"
  printf '};\n\n'
}
digits_of() {
  od -An -v -tx1 "$1"
}
{
  cat <<'END'
// The certificates of the servers with TLS, as scripts/certificates.sh made them.
#include "ground/certificates.h"

#include <array>

namespace selfcheck {
namespace {

END
  openssl ec -in key.pem -text -noout 2>/dev/null | sed -n '/^priv/,/^pub/ s/^ *\([0-9a-f:]*\)$/\1/p' | array kKey
  digits_of expired.der | array kExpired
  digits_of other_name.der | array kOtherName
  digits_of untrusted.der | array kUntrusted
  cat <<'END'
}  // namespace

std::span<const unsigned char> keyOfCertificates() { return kKey; }

std::span<const unsigned char> bytesOf(Certificate certificate) {
  if (certificate == Certificate::Expired) return kExpired;
  return certificate == Certificate::OtherName ? std::span<const unsigned char>(kOtherName) : kUntrusted;
}

}  // namespace selfcheck
END
} | clang-format --style="file:$PWD_OF_PROJECT/.clang-format" >"$PWD_OF_PROJECT/selfcheck/ground/certificates.cpp"

# TLS of the servers, where the sources of BearSSL can be had; without them the checks that need TLS are skipped.
set(KIV_BEARSSL_SOURCES ${PROJECT_SOURCE_DIR}/build/bearssl/sources CACHE PATH "Where the sources of BearSSL are, or will be")
set(bearssl ${KIV_BEARSSL_SOURCES})
set(bearssl_found FALSE)
if(KIV_BEARSSL AND EXISTS ${bearssl}/inc/bearssl.h)
  set(bearssl_found TRUE)
elseif(KIV_BEARSSL)
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/bearssl.sh RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
  if(failed STREQUAL "0")
    set(bearssl_found TRUE)
  else()
    message(STATUS "Without the sources of BearSSL the servers of kiv-selfcheck have no TLS")
  endif()
endif()
if(NOT bearssl_found)
  target_sources(kiv_selfcheck_parts PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/ground/tls/no_tls_stream.cpp)
  return()
endif()

# What a server needs that speaks TLS 1.2 with one suite, of 290 files. Somebody else's code: without our warnings.
set(bearssl_sources
    codec/ccopy codec/dec32be codec/dec32le codec/enc32be codec/enc32le
    ec/ec_all_m15 ec/ec_c25519_m15 ec/ec_p256_m15 ec/ec_prime_i15 ec/ec_secp256r1 ec/ec_secp384r1
    ec/ec_secp521r1 ec/ecdsa_i31_bits ec/ecdsa_i31_sign_asn1 ec/ecdsa_i31_sign_raw ec/ecdsa_rta
    hash/ghash_ctmul hash/ghash_ctmul32 hash/ghash_ctmul64 hash/ghash_pclmul hash/ghash_pwr8 hash/multihash
    hash/sha2small
    int/i15_add int/i15_bitlen int/i15_decmod int/i15_decode int/i15_decred int/i15_encode int/i15_fmont
    int/i15_iszero int/i15_modpow int/i15_montmul int/i15_muladd int/i15_ninv15 int/i15_reduce int/i15_rshift
    int/i15_sub int/i15_tmont int/i31_add int/i31_bitlen int/i31_decmod int/i31_decode int/i31_encode
    int/i31_fmont int/i31_iszero int/i31_modpow int/i31_montmul int/i31_muladd int/i31_ninv31 int/i31_rshift
    int/i31_sub int/i31_tmont int/i32_div32
    mac/hmac
    rand/hmac_drbg rand/sysrng
    ssl/prf ssl/prf_sha256 ssl/ssl_engine ssl/ssl_engine_default_aesgcm ssl/ssl_hashes ssl/ssl_hs_server
    ssl/ssl_io ssl/ssl_rec_gcm ssl/ssl_scert_single_ec ssl/ssl_server ssl/ssl_server_minf2g
    symcipher/aes_ct symcipher/aes_ct64 symcipher/aes_ct64_ctr symcipher/aes_ct64_enc symcipher/aes_ct_ctr
    symcipher/aes_ct_enc symcipher/aes_pwr8 symcipher/aes_pwr8_ctr symcipher/aes_x86ni symcipher/aes_x86ni_ctr)
list(TRANSFORM bearssl_sources REPLACE "(.+)" "${bearssl}/src/\\1.c")
add_library(bearssl STATIC EXCLUDE_FROM_ALL ${bearssl_sources})
target_include_directories(bearssl PRIVATE ${bearssl}/src)
target_include_directories(bearssl SYSTEM PUBLIC ${bearssl}/inc)
target_compile_options(bearssl PRIVATE -Os -w)
target_sources(kiv_selfcheck_parts PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/ground/tls/bearssl_stream.cpp)
target_link_libraries(kiv_selfcheck_parts PRIVATE bearssl)

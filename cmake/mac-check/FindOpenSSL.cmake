include(${CMAKE_CURRENT_LIST_DIR}/HeadersOnly.cmake)
orvel_headers_only(OpenSSL::Crypto)
orvel_headers_only(OpenSSL::SSL)
set(OpenSSL_FOUND TRUE)

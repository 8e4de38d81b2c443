include(${CMAKE_CURRENT_LIST_DIR}/HeadersOnly.cmake)
orvel_headers_only(CLI11::CLI11)
set(CLI11_FOUND TRUE)

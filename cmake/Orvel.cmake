# What every target here is compiled with, and the two ways in which the folders declare targets.

if(APPLE)
  # Homebrew keeps these where nobody finds them by themselves.
  find_program(BREW brew)
  foreach(formula openssl@3 icu4c)
    if(BREW)
      execute_process(COMMAND ${BREW} --prefix ${formula} OUTPUT_VARIABLE prefix OUTPUT_STRIP_TRAILING_WHITESPACE
                      ERROR_QUIET)
      list(APPEND CMAKE_PREFIX_PATH ${prefix})
    endif()
  endforeach()
endif()

find_package(Threads REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS json url)
if(NOT APPLE)
  find_package(GTest)  # the tests run on Linux
endif()
# Widgets for windows, Core for what they are bound to, Svg for their symbols, on Linux DBus for the
# tray and notifications.
set(parts Core Gui Widgets Svg)
if(NOT APPLE)
  list(APPEND parts DBus)
endif()
find_package(Qt6 6.4 REQUIRED COMPONENTS ${parts})

add_library(orvel_options INTERFACE)
target_include_directories(orvel_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(orvel_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                               -Woverloaded-virtual -Wimplicit-fallthrough -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(orvel_options INTERFACE -Wthread-safety)
  # Functions that assert their queue at run time hand out references to what it owns.
  include(CheckCXXCompilerFlag)
  check_cxx_compiler_flag(-Wthread-safety-reference-return ORVEL_KNOWS_REFERENCE_RETURN)
  if(ORVEL_KNOWS_REFERENCE_RETURN)
    target_compile_options(orvel_options INTERFACE -Wno-thread-safety-reference-return)
  endif()
endif()
if(APPLE)
  target_compile_options(orvel_options INTERFACE -Wunguarded-availability-new
                                                 $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)
  # The system's `check` and `verify` are macros otherwise.
  target_compile_definitions(orvel_options INTERFACE __ASSERT_MACROS_DEFINE_VERSIONS_WITHOUT_UNDERSCORES=0)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # gcc 12 sees overlapping copies in correct uses of std::string (gcc bug 105651).
  target_compile_options(orvel_options INTERFACE -Wno-restrict)
endif()
if(ORVEL_SANITIZE)
  target_compile_options(orvel_options INTERFACE -fsanitize=${ORVEL_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
  target_link_options(orvel_options INTERFACE -fsanitize=${ORVEL_SANITIZE})
  if(ORVEL_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # Asio uses atomic_thread_fence, which gcc's thread sanitizer does not model.
    target_compile_options(orvel_options INTERFACE -Wno-tsan)
  endif()
endif()
if(CMAKE_BUILD_TYPE STREQUAL Release)
  # Hardened, as distributions want it.
  target_compile_options(orvel_options INTERFACE -g1 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
  if(NOT APPLE)
    target_link_options(orvel_options INTERFACE -Wl,--as-needed -Wl,-z,relro -Wl,-z,now)
  endif()
endif()

# For a target with the option QT: code for its QObjects is generated from their headers.
function(orvel_use_qt name)
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
  # `slots` and `emit` are names like any other; GLib's and Boost's headers use them.
  target_compile_definitions(${name} PUBLIC QT_NO_KEYWORDS)
endfunction()

# orvel_library(name [QT] SOURCES ... LINK ... PRIVATE_LINK ...): a static library of this project.
function(orvel_library name)
  cmake_parse_arguments(arg "QT" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
  if(ORVEL_CHECK_ONLY)
    add_library(${name} OBJECT ${arg_SOURCES})
    target_compile_options(${name} PRIVATE -fsyntax-only)
  else()
    add_library(${name} STATIC ${arg_SOURCES})
  endif()
  target_link_libraries(${name} PUBLIC orvel_options Threads::Threads ${arg_LINK} PRIVATE ${arg_PRIVATE_LINK})
  if(arg_QT)
    orvel_use_qt(${name})
  endif()
endfunction()

# orvel_program(name [QT] SOURCES ... LINK ...): an executable, put straight into the build folder.
function(orvel_program name)
  cmake_parse_arguments(arg "QT" "" "SOURCES;LINK" ${ARGN})
  if(ORVEL_CHECK_ONLY)
    add_library(${name} OBJECT ${arg_SOURCES})
    target_compile_options(${name} PRIVATE -fsyntax-only)
  else()
    add_executable(${name} ${arg_SOURCES})
  endif()
  target_link_libraries(${name} PRIVATE orvel_options Threads::Threads ${arg_LINK})
  if(arg_QT)
    orvel_use_qt(${name})
  endif()
endfunction()

# orvel_tests(name [QT] SOURCES ... LINK ...): a GoogleTest program; `./orvel test` runs every *-tests
# program that it finds in build/dev. A release build makes it only when asked to by name.
function(orvel_tests name)
  if(NOT GTest_FOUND)
    return()
  endif()
  orvel_program(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE GTest::gmock GTest::gtest_main)
  if(CMAKE_BUILD_TYPE STREQUAL Release)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
  if(NOT ORVEL_CHECK_ONLY)
    add_test(NAME ${name} COMMAND ${name})
  endif()
endfunction()

# For ./orvel check-macos on Linux: clang and lld, the SDK's headers and stubs, and of the other
# libraries the headers alone. ORVEL_MAC_PROCESSOR and ORVEL_MAC_SDK come with the call.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${ORVEL_MAC_PROCESSOR})
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVEL_MAC_PROCESSOR ORVEL_MAC_SDK ORVEL_MAC_HEADERS ORVEL_MAC_LLVM)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(CMAKE_OSX_SYSROOT ${ORVEL_MAC_SDK})
set(CMAKE_OSX_DEPLOYMENT_TARGET 14.0)
set(CMAKE_OSX_ARCHITECTURES ${ORVEL_MAC_PROCESSOR})
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET ${ORVEL_MAC_PROCESSOR}-apple-macos14)
endforeach()
set(CMAKE_C_COMPILER ${ORVEL_MAC_LLVM}/clang)
set(CMAKE_CXX_COMPILER ${ORVEL_MAC_LLVM}/clang++)
set(CMAKE_OBJCXX_COMPILER ${ORVEL_MAC_LLVM}/clang++)
set(CMAKE_AR ${ORVEL_MAC_LLVM}/llvm-ar)
set(CMAKE_RANLIB ${ORVEL_MAC_LLVM}/llvm-ranlib)
set(CMAKE_INSTALL_NAME_TOOL ${ORVEL_MAC_LLVM}/llvm-install-name-tool)

# The Mac's own standard library, not the one of this clang.
set(standardLibrary "-nostdinc++ -isystem ${ORVEL_MAC_SDK}/usr/include/c++/v1")
set(CMAKE_CXX_FLAGS_INIT "${standardLibrary}")
set(CMAKE_OBJCXX_FLAGS_INIT "${standardLibrary}")
# What the missing libraries would define is looked at afterwards.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -mlinker-version=1000 -Wl,-undefined,dynamic_lookup")

set(CMAKE_FIND_ROOT_PATH ${ORVEL_MAC_SDK})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Stand-ins for the packages.
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})

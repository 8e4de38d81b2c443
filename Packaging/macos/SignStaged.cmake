# Run by CPack between laying out the disk image and making it.
if(NOT DEFINED ENV{ORVEL_SIGN_IDENTITY})
  message(STATUS "ORVEL_SIGN_IDENTITY is not set: the application stays unsigned and runs on this Mac alone")
  return()
endif()
file(GLOB_RECURSE applications LIST_DIRECTORIES true "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.app")
foreach(application IN LISTS applications)
  if(application MATCHES "/[^/]*\\.app$" AND NOT application MATCHES "\\.app/")
    execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/sign-and-notarise.sh" sign "${application}"
                    COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()

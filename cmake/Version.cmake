# Version text: project version and short source revision, joined by a hyphen.
find_package(Git QUIET)
set(ZARN_REVISION "" CACHE STRING "Source revision to show instead of the checkout's own")
set(revision "${ZARN_REVISION}")
if(NOT revision AND GIT_FOUND)
  execute_process(
    COMMAND ${GIT_EXECUTABLE} rev-parse --short=9 HEAD
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
    OUTPUT_VARIABLE revision
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  # A new commit must configure anew, or the version would lie.
  execute_process(
    COMMAND ${GIT_EXECUTABLE} rev-parse --absolute-git-dir
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
    OUTPUT_VARIABLE git_dir
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(EXISTS ${git_dir}/logs/HEAD)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${git_dir}/logs/HEAD)
  endif()
endif()
if(NOT revision)
  set(revision "unknown")
endif()
set(ZARN_VERSION_TEXT "${PROJECT_VERSION}-${revision}")

# Version text: project version and short source revision, joined by a hyphen. The resources,
# which systems compare, have four numbers: the last one counts the commits up to this one.
find_package(Git QUIET)
set(ZARN_REVISION "" CACHE STRING "Source revision to show instead of the checkout's own")
set(ZARN_BUILD_NUMBER "" CACHE STRING "Fourth field of the version instead of the number of commits")
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
set(build_number "${ZARN_BUILD_NUMBER}")
if(NOT build_number AND GIT_FOUND)
  execute_process(
    COMMAND ${GIT_EXECUTABLE} rev-list --count HEAD
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
    OUTPUT_VARIABLE build_number
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT build_number)
  set(build_number 0)
endif()
if(NOT ZARN_BUILD_NUMBER AND GIT_FOUND)
  execute_process(
    COMMAND ${GIT_EXECUTABLE} rev-parse --is-shallow-repository
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
    OUTPUT_VARIABLE is_shallow
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(is_shallow STREQUAL "true")
    message(WARNING "This clone lacks older commits, so the last field of the version (${build_number}) is too low: "
                    "what is built here must not be shipped.")
  endif()
endif()
if(build_number GREATER 65535)
  message(FATAL_ERROR "A field of a version holds at most 65535, and there are ${build_number} commits: "
                      "raise the project's version and give ZARN_BUILD_NUMBER.")
endif()
if(NOT revision)
  set(revision "unknown")
endif()
set(ZARN_VERSION_TEXT "${PROJECT_VERSION}-${revision}")
set(ZARN_VERSION_FOUR "${PROJECT_VERSION}.${build_number}")
string(REPLACE "." "," ZARN_VERSION_FIELDS "${ZARN_VERSION_FOUR}")

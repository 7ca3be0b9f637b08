# Compiler and linker flags as one interface target, so that folder files stay small.
add_library(zarn_flags INTERFACE)
target_include_directories(zarn_flags INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_compile_options(
  zarn_flags
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wshadow
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wold-style-cast
            -Wcast-align
            -Wformat=2
            -Wimplicit-fallthrough
            -Wundef
            -Werror
            -fstack-protector-strong
            -ffile-prefix-map=${CMAKE_SOURCE_DIR}=.
            -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Guarded members are annotated; clang checks that their lock is held.
  target_compile_options(zarn_flags INTERFACE -Wthread-safety)
else()
  target_compile_options(zarn_flags INTERFACE -Wduplicated-cond -Wlogical-op -Wuseless-cast)
endif()

if(ZARN_SANITIZE)
  target_compile_options(zarn_flags INTERFACE -fsanitize=${ZARN_SANITIZE} -fno-omit-frame-pointer
                                              -fno-sanitize-recover=all)
  target_link_options(zarn_flags INTERFACE -fsanitize=${ZARN_SANITIZE})
else()
  target_compile_definitions(zarn_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()

if(WIN32)
  target_compile_definitions(zarn_flags INTERFACE UNICODE _UNICODE)
  # Where the libraries lie must not show in the program.
  target_compile_options(zarn_flags INTERFACE -ffile-prefix-map=${CMAKE_PREFIX_PATH}=libraries)
  target_compile_options(zarn_flags INTERFACE -ffunction-sections -fdata-sections)
  # -fstack-protector-strong again: the linker takes its run-time from this flag.
  target_link_options(zarn_flags INTERFACE -static -fstack-protector-strong -Wl,--gc-sections -Wl,--high-entropy-va
                      -Wl,--dynamicbase -Wl,--nxcompat)
endif()

# zarn_library(NAME FILES... [WIN FILES...] [POSIX FILES...] [LINK TARGETS...])
# A folder's library: portable files, the files of one platform, and what it depends on.
function(zarn_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "WIN;POSIX;LINK")
  set(files ${arg_UNPARSED_ARGUMENTS})
  if(WIN32)
    list(APPEND files ${arg_WIN})
  else()
    list(APPEND files ${arg_POSIX})
  endif()
  add_library(${name} STATIC ${files})
  target_link_libraries(${name} PUBLIC zarn_flags ${arg_LINK})
endfunction()

# zarn_small(NAME): a library whose work is calls to the system, where the program's
# size counts and nothing is gained by speed.
function(zarn_small name)
  if(WIN32)
    target_compile_options(${name} PRIVATE -Os)
  endif()
endfunction()

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

# Most of a file's compile time goes into the headers of libraries, so several files of
# a target are compiled as one. They share a scope then: names in anonymous namespaces
# must differ within a folder. CMake's own UNITY_BUILD names the files by absolute paths,
# by which a compiler cache would tell one checkout from another.
option(ZARN_BATCHES "Compile source files in batches; off for tools that look at each file" ON)
set(ZARN_BATCH_SIZE 8 CACHE STRING "The most source files in a batch")

# zarn_batch_sources(TARGET): replaces the target's C++ files by batches of them. It does
# so at the end of the folder, when it is known which files have compile options of their
# own: those are batched with files that have the same ones.
function(zarn_batch_sources target)
  if(ZARN_BATCHES)
    cmake_language(EVAL CODE "cmake_language(DEFER CALL zarn_make_batches [[${target}]])")
  endif()
endfunction()

function(zarn_make_batches target)
  get_target_property(sources ${target} SOURCES)
  set(all_options "")
  foreach(source ${sources})
    get_source_file_property(definitions ${source} COMPILE_DEFINITIONS)
    # Of one kind are only files of this folder that differ in nothing but their options.
    if(definitions OR IS_ABSOLUTE ${source} OR NOT source MATCHES "\\.cpp$")
      list(APPEND rest ${source})
      continue()
    endif()
    get_source_file_property(options ${source} COMPILE_OPTIONS)
    list(APPEND all_options "${options}")
    list(APPEND files_${options} ${source})
  endforeach()
  list(REMOVE_DUPLICATES all_options)

  set(number 0)
  foreach(options ${all_options})
    list(LENGTH files_${options} count)
    math(EXPR batches "(${count} + ${ZARN_BATCH_SIZE} - 1) / ${ZARN_BATCH_SIZE}")
    math(EXPR size "(${count} + ${batches} - 1) / ${batches}")
    while(files_${options})
      list(SUBLIST files_${options} 0 ${size} files)
      list(REMOVE_ITEM files_${options} ${files})
      math(EXPR number "${number} + 1")
      set(batch ${CMAKE_CURRENT_BINARY_DIR}/${target}_${number}.cpp)
      set(text "// Made by cmake/Flags.cmake.\n")
      foreach(file ${files})
        file(RELATIVE_PATH path ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/${file})
        string(APPEND text "#include \"${path}\"\n")
      endforeach()
      file(CONFIGURE OUTPUT ${batch} CONTENT "${text}" @ONLY)
      set_source_files_properties(${batch} PROPERTIES INCLUDE_DIRECTORIES ${CMAKE_SOURCE_DIR})
      if(options)
        set_source_files_properties(${batch} PROPERTIES COMPILE_OPTIONS "${options}")
      endif()
      list(APPEND rest ${batch})
    endwhile()
  endforeach()
  set_property(TARGET ${target} PROPERTY SOURCES ${rest})
endfunction()

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
  zarn_batch_sources(${name})
endfunction()

# zarn_small(NAME): a library whose work is calls to the system, where the program's
# size counts and nothing is gained by speed.
function(zarn_small name)
  if(WIN32)
    target_compile_options(${name} PRIVATE -Os)
  endif()
endfunction()

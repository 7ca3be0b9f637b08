# The libraries the service stands on: static ones from the dependency cache for
# Windows, Debian's own for the native build. Their headers are "system" headers,
# so our warnings stay ours.
find_package(Threads REQUIRED)
find_package(OpenSSL 3.0 REQUIRED)
find_package(fmt 9.1 REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS filesystem thread date_time)

add_library(zarn_boost INTERFACE)
target_link_libraries(zarn_boost INTERFACE Boost::headers Boost::filesystem Boost::thread Boost::date_time
                                           Threads::Threads)
target_compile_definitions(zarn_boost INTERFACE BOOST_BIND_GLOBAL_PLACEHOLDERS BOOST_ALLOW_DEPRECATED_HEADERS
                                                BOOST_ASIO_NO_DEPRECATED)

add_library(zarn_fmt INTERFACE)
target_link_libraries(zarn_fmt INTERFACE fmt::fmt)

add_library(zarn_curl INTERFACE)
if(WIN32)
  # Otherwise curl's own configuration finds zlib's import library, and the program needs its DLL.
  set(ZLIB_USE_STATIC_LIBS ON)
  find_package(CURL 7.88 REQUIRED CONFIG)
  target_link_libraries(zarn_curl INTERFACE CURL::libcurl OpenSSL::SSL OpenSSL::Crypto ws2_32 crypt32 bcrypt)
  # Says that the system libraries come behind OpenSSL when a program is linked.
  set_property(TARGET OpenSSL::Crypto APPEND PROPERTY INTERFACE_LINK_LIBRARIES ws2_32 crypt32)
  target_link_libraries(zarn_boost INTERFACE ws2_32 mswsock bcrypt)
else()
  find_package(CURL 7.88 REQUIRED)
  target_link_libraries(zarn_curl INTERFACE CURL::libcurl OpenSSL::SSL OpenSSL::Crypto)
endif()
# The classic form API and CURLOPT_PROGRESSFUNCTION are used on purpose.
target_compile_definitions(zarn_curl INTERFACE CURL_DISABLE_DEPRECATION)

# A header-only library of Debian, taken out of /usr/include, where a cross build
# must not look.
function(zarn_header_library name header)
  get_filename_component(folder ${header} DIRECTORY)
  find_file(zarn_${name}_header ${header} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  file(COPY /usr/include/${folder} DESTINATION ${CMAKE_BINARY_DIR}/headers/${name})
  add_library(zarn_${name} INTERFACE)
  target_include_directories(zarn_${name} SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/headers/${name})
endfunction()
zarn_header_library(expected tl/expected.hpp)
zarn_header_library(json nlohmann/json.hpp)

foreach(target zarn_boost zarn_fmt zarn_curl)
  get_target_property(linked ${target} INTERFACE_LINK_LIBRARIES)
  foreach(library ${linked})
    if(TARGET ${library})
      get_target_property(aliased ${library} ALIASED_TARGET)
      if(aliased)
        set(library ${aliased})
      endif()
      get_target_property(includes ${library} INTERFACE_INCLUDE_DIRECTORIES)
      if(includes)
        set_property(TARGET ${library} PROPERTY INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${includes})
      endif()
    endif()
  endforeach()
endforeach()

if(ZARN_BUILD_TESTS AND WIN32)
  # Debian ships its source for such builds.
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
elseif(ZARN_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()

# find_package(ZarnUpdateClient CONFIG) gives the target Zarn::UpdateClient: the headers and the
# library to link. The DLL has to be found when the program starts: copy
# $<TARGET_FILE:Zarn::UpdateClient> beside it.
get_filename_component(zarn_sdk "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(NOT TARGET Zarn::UpdateClient)
  set(zarn_library "${zarn_sdk}/lib/libZarnUpdateClient.dll.a")
  if(MSVC)
    set(zarn_library "${zarn_sdk}/lib/ZarnUpdateClient.lib")
    if(NOT EXISTS "${zarn_library}")
      set(ZarnUpdateClient_FOUND FALSE)
      set(ZarnUpdateClient_NOT_FOUND_MESSAGE
          "Make the import library first, in ${zarn_sdk}/lib: lib /def:ZarnUpdateClient.def /machine:x64 /out:ZarnUpdateClient.lib"
      )
      return()
    endif()
  endif()
  add_library(Zarn::UpdateClient SHARED IMPORTED)
  set_target_properties(
    Zarn::UpdateClient
    PROPERTIES IMPORTED_LOCATION "${zarn_sdk}/bin/ZarnUpdateClient.dll"
               IMPORTED_IMPLIB "${zarn_library}"
               INTERFACE_INCLUDE_DIRECTORIES "${zarn_sdk}/include")
endif()

# Makes the target Vorel::orv of the host framework under the prefix `root`. The build and the
# installed package both use this file.
function(vorel_add_host_framework root)
  if(TARGET Vorel::orv)
    return()
  endif()
  find_library(vorel_orv_library NAMES orv liborv.so.0
               PATHS "${root}" PATH_SUFFIXES lib lib64 lib/${CMAKE_LIBRARY_ARCHITECTURE}
               NO_DEFAULT_PATH NO_CACHE REQUIRED)
  find_path(vorel_orv_headers orv/Orv.h
            PATHS "${root}" PATH_SUFFIXES include include/vorel
            NO_DEFAULT_PATH NO_CACHE REQUIRED)
  add_library(Vorel::orv SHARED IMPORTED GLOBAL)
  set_target_properties(Vorel::orv PROPERTIES IMPORTED_LOCATION "${vorel_orv_library}"
                        INTERFACE_INCLUDE_DIRECTORIES "${vorel_orv_headers}")
endfunction()

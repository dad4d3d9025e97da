# Builds a test program with the library's own objects, so that calls of theirs can fail on request:
# the linker replaces these calls by the ones of tests/support/Faults.cpp.
function(vorel_target_faults name)
  vorel_target(${name})
  target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/Faults.cpp $<TARGET_OBJECTS:Vorel>)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include
                             ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests/support)
  target_link_libraries(${name} PRIVATE Vorel::orv)
  target_compile_definitions(${name} PRIVATE TEST_SANITIZERS="${VOREL_SANITIZE}")
  foreach(call malloc free write pthread_mutex_lock pthread_mutex_unlock getsockopt ioctl vsnprintf)
    target_link_options(${name} PRIVATE -Wl,--wrap=${call})
  endforeach()
endfunction()

# Makes a test program of the library's objects, so that calls of theirs can fail on request: the
# linker replaces these calls by the ones of tests/Faults.cpp.
function(vorel_target_faults name)
  target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/Faults.cpp $<TARGET_OBJECTS:Vorel>)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE Vorel::orv)
  foreach(call malloc free write pthread_mutex_lock pthread_mutex_unlock fstat getsockopt ioctl)
    target_link_options(${name} PRIVATE -Wl,--wrap=${call})
  endforeach()
endfunction()

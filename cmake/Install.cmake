# What is installed, and the packages by which other builds find the library: in the prefix, and in
# the build folder as well.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/vorel)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Vorel)

install(DIRECTORY include/vorel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
target_include_directories(Vorel INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
                                           $<INSTALL_INTERFACE:${include_dir}>)
set(targets Vorel)
if(NOT VOREL_ORV_ROOT)
  install(FILES orv/Orv.h DESTINATION ${include_dir}/orv)
  target_include_directories(orv INTERFACE $<INSTALL_INTERFACE:${include_dir}>)
  list(APPEND targets orv)
endif()
install(TARGETS ${targets} EXPORT VorelTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

configure_package_config_file(cmake/VorelConfig.cmake.in ${PROJECT_BINARY_DIR}/VorelConfig.cmake
                              INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
configure_file(cmake/HostFramework.cmake HostFramework.cmake COPYONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VorelConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
export(EXPORT VorelTargets NAMESPACE Vorel:: FILE ${PROJECT_BINARY_DIR}/VorelTargets.cmake)
install(EXPORT VorelTargets NAMESPACE Vorel:: DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/VorelConfig.cmake ${PROJECT_BINARY_DIR}/VorelConfigVersion.cmake
              ${PROJECT_BINARY_DIR}/HostFramework.cmake
        DESTINATION ${package_dir})

# The pkg-config file finds its prefix from its own place.
set(pc_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_prefix ${pc_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
file(RELATIVE_PATH pc_include ${pc_dir} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
set(pc_orv_libs -lorv)
set(pc_orv_cflags "")
if(VOREL_ORV_ROOT)
  get_target_property(pc_orv_libs Vorel::orv IMPORTED_LOCATION)
  get_target_property(pc_orv_cflags Vorel::orv INTERFACE_INCLUDE_DIRECTORIES)
  string(PREPEND pc_orv_cflags -I)
endif()
configure_file(cmake/vorel.pc.in vorel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vorel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

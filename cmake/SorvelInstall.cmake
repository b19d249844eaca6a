# cmake --install puts the libraries, their headers below include/sorvel/, the command and packages that
# find_package(sorvel) and pkg-config find.

include(CMakePackageConfigHelpers)

get_property(libraries GLOBAL PROPERTY SORVEL_LIBRARIES)
install(TARGETS ${libraries} EXPORT sorvelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}) # where Windows looks for shared libraries
if(TARGET sorvel)
  install(TARGETS sorvel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/sorvel)
install(EXPORT sorvelTargets NAMESPACE sorvel:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/sorvelConfig.cmake.in ${PROJECT_BINARY_DIR}/sorvelConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/sorvelConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sorvelConfig.cmake ${PROJECT_BINARY_DIR}/sorvelConfigVersion.cmake DESTINATION ${package_dir})

# Installation: the library, its headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS tarlink tarsim EXPORT tarlinkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/tarlink.h include/tarlink_platform.h include/tarsim.h include/tarsim.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The area headers that the umbrella headers include.
foreach(dir tarlink tarsim)
  if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/include/${dir})
    install(DIRECTORY include/${dir} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
  endif()
endforeach()
# The records header that tarlink.h includes, generated from the schema at build time.
install(FILES ${TARLINK_GEN_DIR}/tarlink_records.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT tarlinkTargets NAMESPACE tarlink:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarlink)

configure_package_config_file(cmake/tarlinkConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/tarlinkConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarlink)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tarlinkConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tarlinkConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/tarlinkConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tarlink)

foreach(pc tarlink tarsim)
  configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

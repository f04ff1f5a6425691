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

# The pkg-config files find the prefix from where they stand, so an installed tree can move; the
# climb out of the pkgconfig folder has as many steps as the library directory has parts
# (lib/x86_64-linux-gnu/pkgconfig is three below the prefix).
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(TARLINK_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(TARLINK_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  set(TARLINK_PC_PREFIX "\${pcfiledir}/..")
  string(REPLACE "/" ";" libdir_parts "${CMAKE_INSTALL_LIBDIR}")
  foreach(part IN LISTS libdir_parts)
    if(NOT part STREQUAL "" AND NOT part STREQUAL ".")
      string(APPEND TARLINK_PC_PREFIX "/..")
    endif()
  endforeach()
  set(TARLINK_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(TARLINK_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(TARLINK_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
foreach(pc tarlink tarsim)
  configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# What `cmake --install` leaves behind: headers, both libraries, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS kestro kestro_static EXPORT kestroTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kestro)
install(EXPORT kestroTargets NAMESPACE kestro:: DESTINATION ${package_dir})
configure_package_config_file(cmake/kestroConfig.cmake.in ${PROJECT_BINARY_DIR}/kestroConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kestroConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kestroConfig.cmake ${PROJECT_BINARY_DIR}/kestroConfigVersion.cmake
              cmake/KestroDependencies.cmake
        DESTINATION ${package_dir})

# A moved path belongs to the built library; programs that read the macro must see the same one.
set(KESTRO_PC_DEFINITIONS "")
foreach(definition IN LISTS KESTRO_PATH_DEFINITIONS)
  string(REPLACE "\"" "\\\"" quoted "${definition}")
  string(APPEND KESTRO_PC_DEFINITIONS " -D${quoted}")
endforeach()
configure_file(cmake/kestro.pc.in ${PROJECT_BINARY_DIR}/kestro.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kestro.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The units want to be told when a daemon is ready, which takes libsystemd. Where an administrator puts settings is his.
if(TARGET kestro-routerd AND systemd_FOUND)
  file(GLOB units CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/daemons/*.service ${PROJECT_SOURCE_DIR}/daemons/*.target)
  install(FILES ${units} DESTINATION lib/systemd/system)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/kestro.sysusers DESTINATION lib/sysusers.d RENAME kestro.conf)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/kestro.default DESTINATION ${CMAKE_INSTALL_DATADIR}/kestro)
endif()

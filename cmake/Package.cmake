# Makes find_package(player_core) work, with the platform libraries as player_core::kit and so on.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/player_core)
set(libraries kit tavo_core tavo_midi tavo_audio tavo_security player_core)

install(TARGETS ${libraries} EXPORT player_core-targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT player_core)
foreach(folder platform/kit platform/tavo_core platform/tavo_midi platform/tavo_audio platform/tavo_security player_core)
    install(DIRECTORY ${folder}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT player_core OPTIONAL)
endforeach()
install(EXPORT player_core-targets NAMESPACE player_core:: DESTINATION ${package_dir} COMPONENT player_core)

configure_package_config_file(cmake/player_core-config.cmake.in player_core-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(player_core-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/player_core-config.cmake ${CMAKE_BINARY_DIR}/player_core-config-version.cmake
        DESTINATION ${package_dir} COMPONENT player_core)

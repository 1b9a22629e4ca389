# Makes find_package(player_core) work, with the platform libraries as player_core::kit and so on. The component tavo_midi_io
# brings player_core::tavo_midi_io; who does not ask for it needs neither JACK nor RtMidi.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/player_core)
set(libraries kit tavo_core tavo_midi tavo_audio tavo_security player_core)

install(TARGETS ${libraries} EXPORT player_core-targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT player_core)
foreach(folder platform/kit platform/tavo_core platform/tavo_midi platform/tavo_audio platform/tavo_security player_core)
    install(DIRECTORY ${folder}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT player_core OPTIONAL)
endforeach()
install(EXPORT player_core-targets NAMESPACE player_core:: DESTINATION ${package_dir} COMPONENT player_core)

if(TARGET tavo_midi_io)
    install(TARGETS tavo_midi_io EXPORT tavo_midi_io-targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT player_core)
    install(DIRECTORY platform/tavo_midi_io/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT player_core)
    install(EXPORT tavo_midi_io-targets NAMESPACE player_core:: DESTINATION ${package_dir} COMPONENT player_core)
endif()

configure_package_config_file(cmake/player_core-config.cmake.in player_core-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(player_core-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/player_core-config.cmake ${CMAKE_BINARY_DIR}/player_core-config-version.cmake
        DESTINATION ${package_dir} COMPONENT player_core)

# Makes find_package(player_core) work, with the platform libraries as player_core::kit and so on. The component tavo_midi_io
# brings player_core::tavo_midi_io; who does not ask for it needs neither JACK nor RtMidi.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
# One folder of their own among the headers of others; the targets lead there.
set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/tavo)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/player_core)
set(libraries kit tavo_core tavo_midi tavo_audio tavo_security player_core)

install(TARGETS ${libraries} EXPORT player_core-targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT player_core)
foreach(folder platform/kit platform/tavo_core platform/tavo_midi platform/tavo_audio platform/tavo_security player_core)
    install(DIRECTORY ${folder}/include/ DESTINATION ${include_dir} COMPONENT player_core OPTIONAL)
endforeach()
install(EXPORT player_core-targets NAMESPACE player_core:: DESTINATION ${package_dir} COMPONENT player_core)

if(TARGET tavo_midi_io)
    install(TARGETS tavo_midi_io EXPORT tavo_midi_io-targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT player_core)
    install(DIRECTORY platform/tavo_midi_io/include/ DESTINATION ${include_dir} COMPONENT player_core)
    install(EXPORT tavo_midi_io-targets NAMESPACE player_core:: DESTINATION ${package_dir} COMPONENT player_core)
endif()

configure_package_config_file(cmake/player_core-config.cmake.in player_core-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(player_core-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/player_core-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/player_core-config-version.cmake
        DESTINATION ${package_dir} COMPONENT player_core)

# The host's libraries are found as components of the package tavo, which the C library's folder makes.
if(TAVO_HOST)
    set(parts show sounds engine control words session import offline)
    list(TRANSFORM parts PREPEND stage_ OUTPUT_VARIABLE part_targets)
    install(TARGETS ${part_targets} EXPORT tavo_host-targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tavo_dev)
    foreach(part IN LISTS parts)
        install(DIRECTORY stage/${part} DESTINATION ${include_dir}/stage COMPONENT tavo_dev FILES_MATCHING PATTERN "*.h")
    endforeach()
    install(EXPORT tavo_host-targets NAMESPACE tavo:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavo COMPONENT tavo_dev)
endif()

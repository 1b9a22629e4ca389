# What cpack makes Debian packages of (scripts/package): tavo-stage, the host program with all it needs; libtavo0, the library
# that programs of others share; libtavo-dev, what is needed to build them; python3-tavo, the library for Python. Install rules say by their component which package a
# file belongs to.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavo)
set(CPACK_PACKAGE_VENDOR "The Tavo developers")
set(CPACK_PACKAGE_CONTACT "The Tavo developers <developers@tavo.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# No compression of one's own choice by several threads: two builds give the same bytes.
set(CPACK_THREADS 1)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL stage tavo tavo_dev player_core tavo_python)
set(CPACK_COMPONENT_STAGE_GROUP stage)
set(CPACK_COMPONENT_TAVO_GROUP library)
set(CPACK_COMPONENT_TAVO_DEV_GROUP development)
set(CPACK_COMPONENT_PLAYER_CORE_GROUP development)
set(CPACK_COMPONENT_TAVO_PYTHON_GROUP python)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(package_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_STAGE_PACKAGE_NAME tavo-stage)
set(CPACK_DEBIAN_STAGE_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_STAGE_PACKAGE_SHLIBDEPS ON)
# A synthesizer without instruments is silent.
set(CPACK_DEBIAN_STAGE_PACKAGE_DEPENDS "timgm6mb-soundfont | fluid-soundfont-gm | musescore-general-soundfont-small")
set(CPACK_DEBIAN_STAGE_PACKAGE_SUGGESTS "jackd2 | pipewire-jack, fluid-soundfont-gm, chromium | firefox-esr")
set(CPACK_DEBIAN_STAGE_DESCRIPTION "player of live musical theatre shows
Plays the numbered songs of an evening under the hands of an operator: vamps
until they are released, repeats, fermatas, cuts, caesuras, tempo and
transposition, with sound over JACK or any sound device, MIDI, show control,
time code, OSC and a page for every tablet in the pit.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libtavo${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
# Who is linked with it asks for a version that has all of its functions.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS "timgm6mb-soundfont | fluid-soundfont-gm | musescore-general-soundfont-small")
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "player of live musical theatre shows - shared library
Opens, edits and plays shows inside other programs: the player renders into
their buffers, takes their commands and reports what a display shows.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtavo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libtavo${PROJECT_VERSION_MAJOR} (= ${package_version}), libfmt-dev, nlohmann-json3-dev, libzip-dev, libutf8proc-dev, libsodium-dev")
# The static library and MIDI devices need more.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS
    "libfluidsynth-dev, libsndfile1-dev, libmpg123-dev, libsamplerate0-dev, libstk-dev, libpugixml-dev, libcli11-dev, libjack-jackd2-dev | libjack-dev, librtmidi-dev, libasound2-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "player of live musical theatre shows - development
Header and libraries for programs in C or C++ that open, edit and play shows,
and the player's core itself with the libraries that it stands on, to be
linked statically: timelines, change logs, flow control, display updates,
MIDI commands and time code.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-tavo)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3, libtavo${PROJECT_VERSION_MAJOR} (>= ${package_version})")
# What Python compiles of it goes with it.
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/python/postinst
                                              ${CMAKE_SOURCE_DIR}/packaging/python/prerm)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-numpy)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "player of live musical theatre shows - Python
Opens, edits, plays and renders shows from Python, into arrays of NumPy's
where that is installed. Examples are in the documentation's folder.")

# Debian wants to know at the same place in each package who may copy it, and what has changed.
find_program(GZIP gzip REQUIRED)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging)
execute_process(COMMAND ${GZIP} -9n -c ${CMAKE_SOURCE_DIR}/packaging/changelog
                OUTPUT_FILE ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/changelog)
foreach(package_of_component "stage tavo-stage" "tavo libtavo${PROJECT_VERSION_MAJOR}" "tavo_dev libtavo-dev" "tavo_python python3-tavo")
    separate_arguments(package_of_component)
    list(GET package_of_component 0 component)
    list(GET package_of_component 1 package)
    install(FILES packaging/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz
            DESTINATION share/doc/${package} COMPONENT ${component})
    set(more_overrides "")
    if(component STREQUAL tavo)
        set(more_overrides "# cpack writes these scripts for every shared library; the trigger does the same again.\n${package}: maintscript-calls-ldconfig\n")
    endif()
    configure_file(packaging/lintian-overrides ${CMAKE_BINARY_DIR}/packaging/overrides/${package} @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/overrides/${package} DESTINATION share/lintian/overrides COMPONENT ${component})
endforeach()
install(DIRECTORY python/examples DESTINATION share/doc/python3-tavo COMPONENT tavo_python FILES_MATCHING PATTERN "*.py")
include(CPack)

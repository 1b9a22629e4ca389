# Installs the libraries into a fresh folder, then configures, builds and runs hosts that find them there.
# Needs BUILD_DIR, SOURCE_DIR (of the hosts), WORK_DIR, CXX, CXX_FLAGS, PKG_CONFIG, NINJA.
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component player_core --prefix ${WORK_DIR}/prefix)
set(configure ${CMAKE_COMMAND} -G Ninja -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${CXX}
              -DCMAKE_CXX_FLAGS=${CXX_FLAGS})

# On a computer that has neither JACK nor RtMidi.
file(WRITE ${WORK_DIR}/pkg-config
     "#!/bin/sh\ncase \" $* \" in *[\\ =]jack*|*[\\ =]rtmidi*) exit 1 ;; esac\nexec ${PKG_CONFIG} \"$@\"\n")
file(CHMOD ${WORK_DIR}/pkg-config PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
set(without_devices -DPKG_CONFIG_EXECUTABLE=${WORK_DIR}/pkg-config)
execute_process(COMMAND ${WORK_DIR}/pkg-config --exists jack RESULT_VARIABLE result)
if(result EQUAL 0)
    message(FATAL_ERROR "JACK was not hidden.")
endif()
run(${configure} ${without_devices} -S ${SOURCE_DIR} -B ${WORK_DIR}/build)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${CMAKE_COMMAND} -E chdir ${WORK_DIR} ${WORK_DIR}/build/host)
run(ldd ${WORK_DIR}/build/host)
if(output MATCHES "libjack|librtmidi")
    message(FATAL_ERROR "The host without MIDI devices needs them:\n${output}")
endif()
run(${configure} ${without_devices} -S ${SOURCE_DIR}/../.. -B ${WORK_DIR}/tree -DTAVO_MIDI_IO=OFF -DTAVO_STAGE=OFF
    -DTAVO_TESTS=OFF -DTAVO_BENCHMARKS=OFF)

# The example that the documentation sends a host's author to.
run(${configure} ${without_devices} -S ${SOURCE_DIR}/../../examples/minimal_host -B ${WORK_DIR}/example)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/example)
run(${WORK_DIR}/example/minimal_host)
file(READ ${SOURCE_DIR}/../../examples/minimal_host/expected.txt expected)
if(NOT output STREQUAL expected)
    message(FATAL_ERROR "The example does not print expected.txt any more, but:\n${output}")
endif()

# On one that has both, for a host that asks for them.
run(${configure} -DWITH_DEVICES=ON -S ${SOURCE_DIR} -B ${WORK_DIR}/build_with_devices)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build_with_devices)
run(${WORK_DIR}/build_with_devices/host_with_devices)
run(ldd ${WORK_DIR}/build_with_devices/host_with_devices)
if(NOT output MATCHES "libjack" OR NOT output MATCHES "librtmidi")
    message(FATAL_ERROR "The host with MIDI devices does not link them:\n${output}")
endif()

# As part of somebody else's sources: nothing but the core is made, and nothing of it before it is needed.
# What is not compiled is the same for every compiler.
set(fetched_ways OFF ON)
if(CXX_FLAGS)
    set(fetched_ways "")
endif()
foreach(fetched IN LISTS fetched_ways)
    run(${CMAKE_COMMAND} -G Ninja -DCMAKE_CXX_COMPILER=${CXX} ${without_devices} -DTAVO_SOURCE=${SOURCE_DIR}/../.. -DFETCHED=${fetched}
        -S ${SOURCE_DIR}/parent -B ${WORK_DIR}/parent_${fetched})
    run(${NINJA} -C ${WORK_DIR}/parent_${fetched} -t inputs listener)
    if(NOT output MATCHES "player_core")
        message(FATAL_ERROR "What is linked with the core does not need it, but:\n${output}")
    endif()
    run(${NINJA} -C ${WORK_DIR}/parent_${fetched} -t inputs all)
    if(output MATCHES "player_core|libtavo")
        message(FATAL_ERROR "A parent that uses nothing builds:\n${output}")
    endif()
endforeach()

# The libraries of the host, where they are built.
if(NOT EXISTS ${BUILD_DIR}/stage/libstage_import.a)
    return()
endif()
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component tavo --prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component tavo_dev --prefix ${WORK_DIR}/prefix)
run(${configure} ${without_devices} -S ${SOURCE_DIR}/components -B ${WORK_DIR}/build_components)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build_components)
run(${WORK_DIR}/build_components/importer ${SOURCE_DIR}/../../examples/first-score ${WORK_DIR}/show)
if(NOT output STREQUAL "1 Lantern Waltz\n2 Empty Square\n")
    message(FATAL_ERROR "The importer prints:\n${output}")
endif()

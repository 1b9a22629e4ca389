# Installs the C library into a fresh folder, looks at what it shows, and builds and runs the example in C with it: by hand as
# strict C99 with pkg-config, and by CMake. Then the tutorials are followed with what is installed. Needs BUILD_DIR, SOURCE_DIR
# (of the project), WORK_DIR, CC, CXX, PKG_CONFIG, NM; with PYTHON and STAGE, the program, it does all that there is.
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/tavo)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component tavo --prefix ${prefix})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component tavo_dev --prefix ${prefix})
file(GLOB_RECURSE pc_files ${prefix}/*/tavo.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
get_filename_component(lib_dir ${pc_dir} DIRECTORY)

# What the header declares is what the library shows, and nothing else.
file(READ ${prefix}/include/tavo/tavo.h header)
string(REGEX MATCHALL "TAVO_API [^;(]*tavo_[a-z_]+\\(" declarations "${header}")
set(declared "")
foreach(declaration IN LISTS declarations)
    string(REGEX REPLACE ".*(tavo_[a-z_]+)\\($" "\\1" name "${declaration}")
    list(APPEND declared ${name})
endforeach()
run(${NM} -D --defined-only ${lib_dir}/libtavo.so)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
set(shown "")
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-f]+ ([A-Za-z]) ([^@]+).*$" "\\1;\\2" parts "${line}")
    list(GET parts 0 type)
    list(GET parts 1 name)
    if(NOT type STREQUAL "A")
        list(APPEND shown ${name})
    endif()
endforeach()
list(SORT declared)
list(SORT shown)
if(NOT declared STREQUAL shown OR declared STREQUAL "")
    message(FATAL_ERROR "The header declares\n${declared}\nand the library shows\n${shown}")
endif()
run(objdump -p ${lib_dir}/libtavo.so)
if(output MATCHES "NEEDED +(libjack|librtmidi|librtaudio|liblo\\.)")
    message(FATAL_ERROR "The library needs devices or a network:\n${output}")
endif()
if(NOT output MATCHES "SONAME +libtavo\\.so\\.[0-9]+(\\.[0-9]+)?\n")
    message(FATAL_ERROR "The library has no name with a version:\n${output}")
endif()

# expect_example(<program>): it prints what is kept beside it.
set(example ${SOURCE_DIR}/examples/c_player)
file(READ ${example}/expected.txt expected)
function(expect_example program)
    run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${lib_dir} ${program} ${SOURCE_DIR}/tests/shows/0.1.0 1)
    if(NOT output STREQUAL expected)
        message(FATAL_ERROR "${program} does not print expected.txt any more, but:\n${output}")
    endif()
endfunction()

set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run(${PKG_CONFIG} --cflags tavo)
separate_arguments(cflags UNIX_COMMAND "${output}")
run(${PKG_CONFIG} --libs tavo)
separate_arguments(libs UNIX_COMMAND "${output}")
run(${CC} -std=c99 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wstrict-prototypes -Werror ${cflags} ${example}/main.c
    -o ${WORK_DIR}/by_hand ${libs})
expect_example(${WORK_DIR}/by_hand)
# The static library, and the header for C++.
run(${PKG_CONFIG} --static --libs tavo)
string(REPLACE "-ltavo" "-l:libtavo.a" static_libs "${output}")
separate_arguments(static_libs UNIX_COMMAND "${static_libs}")
run(${CC} -std=c99 ${cflags} ${example}/main.c -o ${WORK_DIR}/by_hand_static ${static_libs})
expect_example(${WORK_DIR}/by_hand_static)
file(WRITE ${WORK_DIR}/header.cpp "#include <tavo/tavo.h>\n")
run(${CXX} -std=c++11 -Wall -Wextra -Wpedantic -Werror ${cflags} -fsyntax-only ${WORK_DIR}/header.cpp)

run(${CMAKE_COMMAND} -G Ninja -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC} -S ${example} -B ${WORK_DIR}/by_cmake)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/by_cmake)
expect_example(${WORK_DIR}/by_cmake/c_player)

# What Python needs is whole where it is installed.
if(PYTHON)
    run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component tavo_python --prefix ${prefix})
    run(${CMAKE_COMMAND} -E env PYTHONPATH=${prefix}/lib/python3/dist-packages TAVO_LIBRARY=${lib_dir}/libtavo.so ${PYTHON} -B
        ${SOURCE_DIR}/python/examples/running_order.py ${SOURCE_DIR}/tests/shows/0.1.0)
    if(NOT output MATCHES "Lantern Waltz")
        message(FATAL_ERROR "The example in Python prints:\n${output}")
    endif()
endif()

# The tutorials' host in C++ is clean whatever the compiler.
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component player_core --prefix ${prefix})
set(flags "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror")
if(CXX MATCHES "clang")
    string(APPEND flags " -Wno-deprecated-declarations")
endif()
set(host ${WORK_DIR}/host)
run(${CMAKE_COMMAND} -G Ninja -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${flags}
    -S ${SOURCE_DIR}/examples/your_host -B ${host})
run(${CMAKE_COMMAND} --build ${host})
run(${host}/your_host ${SOURCE_DIR}/tests/shows/0.1.0)
if(NOT output MATCHES "  1  Lantern Waltz\n")
    message(FATAL_ERROR "The host of the tutorial prints:\n${output}")
endif()

# Step by step, as their readers follow them.
if(PYTHON AND STAGE)
    foreach(language cpp python)
        run(${CMAKE_COMMAND} -E env CMAKE_GENERATOR=Ninja CXX=${CXX} ${PYTHON} -B ${SOURCE_DIR}/tests/documents/tutorial_test.py
            ${language} ${STAGE} ${WORK_DIR})
    endforeach()
endif()

# The three kinds of targets of this project: a library of one layer, a test program, and their common flags.

function(tavo_compile_flags target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
    if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
        # libstdc++ 12 itself uses a deprecated function in std::stable_sort, which only clang reports. g++ still reports ours.
        target_compile_options(${target} PRIVATE -Wno-deprecated-declarations)
        # Checks the marks of kit/mutex.h.
        target_compile_options(${target} PRIVATE -Wthread-safety)
    endif()
    if(TAVO_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

# tavo_build_fast(<target> <flag>): in an optimised build this target, which nobody waits for, is compiled with less.
function(tavo_build_fast target flag)
    if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
        target_compile_options(${target} PRIVATE ${flag})
    endif()
endfunction()

# tavo_unity(<target> <sources>): compiles so many sources of the target as one, which reads the headers and makes the templates
# that they share once. Names in their unnamed namespaces must differ.
function(tavo_unity target batch)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${batch})
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        # Takes every included source for a header whose unnamed namespace each includer would have for itself.
        target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
    endif()
endfunction()

# tavo_ship(<target>): for what packages contain. Position-independent, for whoever makes a shared library of it; the folder that
# it was built in does not show, so that every build gives the same bytes.
function(tavo_ship target)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= -ffile-prefix-map=${PROJECT_BINARY_DIR}/=)
endfunction()

# tavo_precompile(<target> <headers>...): reads large headers of others once, where sources are compiled each by itself. The preset
# of clang does without precompiled headers, so that every source of the product is seen to include what it needs.
function(tavo_precompile target)
    if(NOT TAVO_UNITY)
        target_precompile_headers(${target} PRIVATE <algorithm> <filesystem> <functional> <map> <mutex> <string> <vector>
                                  <fmt/format.h> ${ARGN})
    endif()
endfunction()

# tavo_library(<name> <folder> DEPENDS <targets>...)
# Public headers lie in <folder>/include, sources in <folder>/src or <folder>/Sources. Without sources it is header-only.
function(tavo_library name folder)
    cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
    set(root ${CMAKE_CURRENT_SOURCE_DIR}/${folder})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${root}/src/*.cpp ${root}/Sources/*.cpp)
    if(sources)
        set(scope PUBLIC)
        add_library(${name} STATIC ${sources})
        foreach(private_folder ${root}/src ${root}/Sources)
            if(IS_DIRECTORY ${private_folder})
                target_include_directories(${name} PRIVATE ${private_folder})
            endif()
        endforeach()
        tavo_compile_flags(${name})
        tavo_ship(${name})
        if(TAVO_UNITY)
            tavo_unity(${name} 16)
        endif()
    else()
        set(scope INTERFACE)
        add_library(${name} INTERFACE)
    endif()
    target_include_directories(${name} ${scope} $<BUILD_INTERFACE:${root}/include> $<INSTALL_INTERFACE:include/tavo>)
    target_compile_features(${name} ${scope} cxx_std_20)
    target_link_libraries(${name} ${scope} ${ARG_DEPENDS})
endfunction()

# tavo_test(<folder> <program> LINK <targets>... [TIMEOUT <seconds>] [SERIAL <what> [PATIENT <filter>]] [OPTIMISED] [IN_PARTS])
# SERIAL is for tests that keep time with real devices: no two with the same word run at once, and the first begins at once,
# since they wait more than they compute. Those that PATIENT, a filter of GoogleTest's, selects have time to spare: they run
# beside the others, one at a time.
# The tests are not optimised, what they test is; OPTIMISED is for those that compute for long themselves.
# All sources of tests/<folder> make one program; each of its tests is known to ctest. A folder without sources is skipped.
# IN_PARTS: under a sanitizer, where a large program takes longer to begin than most of its tests last, ctest knows four parts of
# it instead.
function(tavo_test folder program)
    cmake_parse_arguments(ARG "OPTIMISED;IN_PARTS" "TIMEOUT;SERIAL;PATIENT" "LINK" ${ARGN})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    if(NOT sources)
        return()
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${program} ${sources})
    tavo_compile_flags(${program})
    if(TAVO_UNITY_TESTS)
        tavo_unity(${program} 8)
    endif()
    if(NOT ARG_OPTIMISED)
        tavo_build_fast(${program} -O0)
        # Precompiled headers fit only where this flag, which some libraries bring along, is the same.
        target_compile_options(${program} PRIVATE -pthread)
        target_precompile_headers(${program} REUSE_FROM test_headers)
    endif()
    # Tests include their shared helpers as "tests/..." and the host's headers as "stage/...".
    target_include_directories(${program} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${program} PRIVATE ${ARG_LINK} GTest::gmock_main)
    target_compile_definitions(${program} PRIVATE SOURCE_DIR="${PROJECT_SOURCE_DIR}"
                                                  CORPUS_DIR="${PROJECT_SOURCE_DIR}/../shared/corpus")
    if(TARGET stage)
        target_compile_definitions(${program} PRIVATE STAGE_BINARY="$<TARGET_FILE:stage>")
    endif()
    if(TARGET stage AND "${ARG_LINK}" MATCHES "stage_")
        add_dependencies(${program} stage)
    endif()
    if(TAVO_SANITIZE AND ARG_IN_PARTS)
        foreach(part RANGE 3)
            add_test(NAME ${program}_${part} COMMAND ${program})
            set_tests_properties(${program}_${part} PROPERTIES TIMEOUT 900 COST 500
                                 ENVIRONMENT "GTEST_TOTAL_SHARDS=4;GTEST_SHARD_INDEX=${part}")
        endforeach()
        return()
    endif()
    set(properties TIMEOUT ${ARG_TIMEOUT})
    set(filter "")
    if(ARG_SERIAL)
        list(APPEND properties LABELS device)
    endif()
    if(ARG_PATIENT)
        gtest_discover_tests(${program} DISCOVERY_TIMEOUT 60 TEST_FILTER "${ARG_PATIENT}"
                             PROPERTIES ${properties} RESOURCE_LOCK ${ARG_SERIAL}_patient COST 1000)
        set(filter TEST_FILTER "-${ARG_PATIENT}")
    endif()
    if(ARG_SERIAL)
        list(APPEND properties RESOURCE_LOCK ${ARG_SERIAL} COST 1000)
    endif()
    gtest_discover_tests(${program} DISCOVERY_TIMEOUT 60 ${filter} PROPERTIES ${properties})
endfunction()

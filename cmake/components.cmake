# The tree as CMake sees it. A room is a folder; a component is a few rooms that are always linked
# together, and says which other components it needs. Whoever uses one names that one alone.

# qel_sources(<variable> <room>...): the .cpp files of the rooms; a room without any is an error.
function(qel_sources variable)
    set(all)
    foreach(room ${ARGN})
        file(GLOB sources CONFIGURE_DEPENDS ${room}/*.cpp)
        if(NOT sources)
            message(FATAL_ERROR "no source in ${CMAKE_CURRENT_SOURCE_DIR}/${room}")
        endif()
        list(APPEND all ${sources})
    endforeach()
    set(${variable} ${all} PARENT_SCOPE)
endfunction()

# qel_component(<name> <room>... [NEON <room>] [X86 <room>] [NEEDS <component>...]): compiles the
# rooms once, as qel_<name>_objects. What links qel_<name> gets their objects and those of all that
# they need. For a processor with NEON the room behind NEON belongs to it and QEL_NEON is defined;
# X86 and QEL_X86 are the same for x86-64.
function(qel_component name)
    cmake_parse_arguments(arg "" "NEON;X86" "NEEDS" ${ARGN})
    set(objects qel_${name}_objects)
    qel_sources(sources ${arg_UNPARSED_ARGUMENTS})
    add_library(${objects} OBJECT ${sources})
    target_include_directories(${objects} PRIVATE ${PROJECT_SOURCE_DIR})
    target_compile_options(${objects} PRIVATE ${QEL_LIBRARY_OPTIONS})

    add_library(qel_${name} INTERFACE)
    target_sources(qel_${name} INTERFACE $<TARGET_OBJECTS:${objects}>)
    target_include_directories(qel_${name} INTERFACE ${PROJECT_SOURCE_DIR})
    qel_use(qel_${name} INTERFACE ${arg_NEEDS})
    target_link_libraries(qel_${name} INTERFACE m)

    foreach(family NEON X86)
        if(arg_${family})
            qel_sources(variants ${arg_${family}})
            if(QEL_HAVE_${family})
                target_sources(${objects} PRIVATE ${variants})
                target_compile_definitions(${objects} PRIVATE QEL_${family})
                target_compile_definitions(qel_${name} INTERFACE QEL_${family})
            endif()
        endif()
    endforeach()
endfunction()

# qel_use(<target> PRIVATE|INTERFACE <component>...): links the components, which must exist.
function(qel_use target scope)
    foreach(component ${ARGN})
        if(NOT TARGET qel_${component})
            message(FATAL_ERROR "${target}: there is no component ${component}")
        endif()
        target_link_libraries(${target} ${scope} qel_${component})
    endforeach()
endfunction()

# qel_program(<name> <source>... USES <component>...)
function(qel_program name)
    cmake_parse_arguments(arg "" "" "USES" ${ARGN})
    add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
    qel_use(${name} PRIVATE ${arg_USES})
endfunction()

# qel_test(<name> [<folder>...] USES <component>... [SOURCES <file>...] [COST <n>] [SOAK]): a
# GoogleTest program <name>_test of the folders' .cpp files and SOURCES; without either, of all
# below tests/<name>. CTest starts with the tests of the highest cost. SOAK ones run for hours, in
# `./test soak` alone.
function(qel_test name)
    cmake_parse_arguments(arg "SOAK" "COST" "USES;SOURCES" ${ARGN})
    qel_sources(sources ${arg_UNPARSED_ARGUMENTS})
    list(APPEND sources ${arg_SOURCES})
    if(NOT sources)
        file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
    endif()
    if(NOT sources)
        message(FATAL_ERROR "no test in ${CMAKE_CURRENT_SOURCE_DIR}/${name}")
    endif()
    qel_program(${name}_test ${sources} USES ${arg_USES})
    target_link_libraries(${name}_test PRIVATE test_support GTest::gmock GTest::gtest_main)
    if(NOT arg_COST)
        set(arg_COST 0)
    endif()
    set(label ${QEL_LABEL})
    set(timeout 1500)
    if(arg_SOAK)
        set(label soak)
        set(timeout 86400)
    endif()
    # Most of a build's time is the tests': they gain nothing from more.
    target_precompile_headers(${name}_test PRIVATE <gmock/gmock.h>)
    target_compile_options(${name}_test PRIVATE $<$<CONFIG:Release>:-O1>)
    gtest_discover_tests(${name}_test TEST_PREFIX ${QEL_LABEL}. DISCOVERY_TIMEOUT 60
                         PROPERTIES LABELS ${label} COST ${arg_COST} TIMEOUT ${timeout})
endfunction()

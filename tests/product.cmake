# Tests of the finished product: the C interface, the module in a real Lua, what the library shows
# and needs, the examples run as a user would.
find_library(LUA_LIBRARY NAMES lua5.1 lua51 lua-5.1 lua DOC "Lua 5.1, for tests that embed it")
find_program(LUA_PROGRAM NAMES lua5.1 lua51 lua ONLY_CMAKE_FIND_ROOT_PATH
             DOC "The target's Lua 5.1 interpreter")
find_package(Python3 REQUIRED COMPONENTS Interpreter)
if(NOT LUA_LIBRARY OR NOT LUA_PROGRAM)
    message(FATAL_ERROR "Lua 5.1 not found: install its interpreter and library")
endif()

qel_test(api USES load)
target_link_libraries(api_test PRIVATE ${LUA_LIBRARY})
target_include_directories(api_test SYSTEM PRIVATE ${LUA_INCLUDE_DIR})
target_compile_definitions(api_test PRIVATE QEL_SOURCE_DIR="${PROJECT_SOURCE_DIR}")

# What takes time: short forms like any test, the long ones in `./test soak`.
qel_test(soak USES load)
target_link_libraries(soak_test PRIVATE ${LUA_LIBRARY})
target_include_directories(soak_test SYSTEM PRIVATE ${LUA_INCLUDE_DIR})
if(CMAKE_CROSSCOMPILING_EMULATOR)
    target_compile_definitions(soak_test PRIVATE QEL_EMULATED)
endif()
add_test(NAME ${QEL_LABEL}.soak COMMAND soak_test --gtest_filter=Soak.*)
set_tests_properties(${QEL_LABEL}.soak PROPERTIES LABELS soak ENVIRONMENT QEL_SOAK=1
                     TIMEOUT 86400)

# Every header alone, as C99.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
     ${PROJECT_SOURCE_DIR}/qel/*.h)
set(header_sources)
foreach(header ${headers})
    set(source ${CMAKE_CURRENT_BINARY_DIR}/headers/${header}.c)
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\ntypedef int not_empty;\n")
    list(APPEND header_sources ${source})
endforeach()
add_library(headers_as_c99 OBJECT ${header_sources})
target_include_directories(headers_as_c99 PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_options(headers_as_c99 PRIVATE -Werror)
set_target_properties(headers_as_c99 PROPERTIES C_EXTENSIONS OFF)

# A sanitized module needs the runtimes in the interpreter that loads it. Leaks count; those of the
# shell and its tools are none of ours.
set(preload)
if(QEL_SANITIZE)
    string(REPLACE "," ";" runtimes ${QEL_SANITIZE})
    list(TRANSFORM runtimes REPLACE "^([atu]).*" "\\1san")  # address: asan
    list(TRANSFORM runtimes REPLACE "^usan" "ubsan")
    foreach(runtime ${runtimes})
        execute_process(COMMAND ${CMAKE_C_COMPILER} -print-file-name=lib${runtime}.so
                        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
        list(APPEND preload ${path})
    endforeach()
    list(JOIN preload ":" preload)
endif()

# What starts a program of the target, empty where that is this machine. Lua gets a script that can
# stand in for it: stream.lua starts the interpreter it runs in, which arg[-1] names, once more.
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
set(lua ${LUA_PROGRAM})
if(emulator)
    set(lua ${CMAKE_CURRENT_BINARY_DIR}/lua)
    file(GENERATE OUTPUT ${lua}
         CONTENT "#!/bin/sh\nexec ${emulator} -0 \"$0\" ${LUA_PROGRAM} \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
endif()

# qel_script(<name> [SOAK] <command>...): a test that finds in its environment what it needs to run
# the product; SOAK as for qel_test().
function(qel_script name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SOAK" "" "")
    set(name ${QEL_LABEL}.${name})
    add_test(NAME ${name} COMMAND ${arg_UNPARSED_ARGUMENTS}
             WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
    set(sanitizers ${QEL_SANITIZE})
    if(NOT QEL_SANITIZE)  # a word for no
        set(sanitizers)
    endif()
    set(environment QEL_EMULATOR=${emulator} LUA=${lua} LUA_CPATH=${PROJECT_BINARY_DIR}/?.so
                    QEL_PRELOAD=${preload} QEL_BUILD=${PROJECT_BINARY_DIR} NM=${CMAKE_NM}
                    READELF=${CMAKE_READELF} CMAKE=${CMAKE_COMMAND} CC=${CMAKE_C_COMPILER}
                    SYSROOT=${CMAKE_SYSROOT} TOOLCHAIN=${CMAKE_TOOLCHAIN_FILE}
                    QEL_NEON=${QEL_HAVE_NEON} QEL_SANITIZE=${sanitizers}
                    PYTHONDONTWRITEBYTECODE=1)
    set_tests_properties(${name} PROPERTIES LABELS ${QEL_LABEL} ENVIRONMENT "${environment}")
    if(arg_SOAK)
        set_tests_properties(${name} PROPERTIES LABELS soak TIMEOUT 86400)
    endif()
endfunction()
# The Lua script reads what the module says from the files that its own outputs go to.
set(interpreters ${lua})
if(NOT emulator)
    list(APPEND interpreters luajit)
endif()
foreach(interpreter ${interpreters})
    cmake_path(GET interpreter FILENAME name)
    qel_script(script.${name} sh -c "out=$(mktemp) && err=$(mktemp) && (LD_PRELOAD=$QEL_PRELOAD \\
        ${interpreter} $0 $out $err >$out 2>$err || ! cat $err)"
        ${CMAKE_CURRENT_SOURCE_DIR}/lua/echo_test.lua)
endforeach()
# Programs of this machine that load the module: hosts that it does not fit, and one without Lua.
function(qel_host name command expected)
    qel_script(host.${name} sh -c "PATH=.:$PATH LD_PRELOAD=$QEL_PRELOAD exec ${command} \"$0\""
               ${ARGN})
    set_tests_properties(${QEL_LABEL}.host.${name} PROPERTIES
                         PASS_REGULAR_EXPRESSION "${expected}")
endfunction()
if(NOT emulator)
    find_library(LUA_STATIC_LIBRARY NAMES liblua5.1.a liblua.a DOC "Lua 5.1, for a static host")
    foreach(program static_host local_host load_twice)
        string(REGEX REPLACE ".*_host" "host" source ${program})
        add_executable(${program} hosts/${source}.cpp)
        target_include_directories(${program} SYSTEM PRIVATE ${LUA_INCLUDE_DIR})
        target_include_directories(${program} PRIVATE ${PROJECT_SOURCE_DIR})
        target_link_libraries(${program} PRIVATE ${CMAKE_DL_LIBS} m)
    endforeach()
    target_link_libraries(static_host PRIVATE ${LUA_STATIC_LIBRARY})
    target_compile_definitions(local_host PRIVATE QEL_LUA_FILE="${LUA_LIBRARY}")
    foreach(host "lua5.2 -e" "lua5.3 -e" "lua5.4 -e" static_host local_host)
        string(REPLACE " -e" "" name ${host})
        qel_host(${name} ${host} "needs a host that exports Lua 5.1's API" "require 'echo'")
    endforeach()
    set(once "-+\nQEL[^-]*-+\ncore v0.5.3\nspu/aec v1.0.8\nunloaded, log closed\n")
    qel_host(without_lua load_twice "^${once}${once}$" ${PROJECT_BINARY_DIR}/echo.so)
endif()
if(NOT QEL_SANITIZE)
    qel_script(abi ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/abi/abi_test.py)
endif()
if(NOT QEL_SANITIZE STREQUAL "thread")  # which has no business in a shell's children
    qel_script(examples ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/examples/examples_test.py)
endif()
qel_script(c_page ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/examples/c_page_test.py)
if(TARGET qel-aec AND NOT emulator)
    set(soak)
    if(QEL_SANITIZE)  # takes long to compile: in `./test soak`
        set(soak SOAK)
    endif()
    file(GLOB programs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/apps/*_test.py)
    foreach(program ${programs})
        cmake_path(GET program STEM name)
        qel_script(qel-aec.${name} ${soak} ${Python3_EXECUTABLE} ${program})
    endforeach()
endif()
if(NOT QEL_SANITIZE)
    qel_script(install ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/abi/install_test.py)
endif()
# What does not depend on the build, once.
if(NOT emulator AND NOT QEL_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    qel_script(configure ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/abi/configure_test.py)
    qel_script(recipes ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/abi/recipes_test.py)
    qel_script(layers ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/check_layers)
    qel_script(format ${PROJECT_SOURCE_DIR}/tools/format --check)
    set_tests_properties(${QEL_LABEL}.format PROPERTIES SKIP_RETURN_CODE 77)
endif()

# Language level, warnings and code generation of everything in the tree.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Release, Debug..." FORCE)
endif()

# Files have 64-bit offsets on 32-bit processors too.
add_compile_definitions(_FILE_OFFSET_BITS=64)

# No contraction: a product and a sum round apart on every processor, in what tests expect too.
add_compile_options(-ffp-contract=off)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wvla)
# Hints to take vectors are hints: without optimisation none are taken.
add_compile_options($<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)
if(QEL_WERROR)
    add_compile_options(-Werror)
endif()

if(QEL_SANITIZE)
    add_compile_options(-O1 -g1 -fsanitize=${QEL_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_compile_definitions($<$<COMPILE_LANGUAGE:CXX>:_GLIBCXX_ASSERTIONS>)
    add_link_options(-fsanitize=${QEL_SANITIZE})
    if(QEL_SANITIZE MATCHES address)
        add_compile_definitions(QEL_ADDRESS_SANITIZER)
    endif()
    # For sources of vectors: to check what stays in registers takes minutes of compiling.
    set(QEL_CHECK_ARRAYS_ALONE -fno-sanitize=undefined -fno-sanitize-address-use-after-scope
        $<$<CXX_COMPILER_ID:GNU>:--param=asan-stack=0>)
endif()
if(QEL_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# What the library itself is compiled with. No fast-math: results are part of the behaviour. No
# exceptions, RTTI or guarded statics: the device has no C++ runtime.
set(QEL_LIBRARY_OPTIONS
    -fno-math-errno -fno-trapping-math -fvisibility=hidden
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)

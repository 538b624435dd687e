# Refuses a compiler that cannot build the tree in one line, before it does so in thousands.
set(unsuitable "unsuitable compiler ${CMAKE_CXX_COMPILER}, ${CMAKE_CXX_COMPILER_ID} \
${CMAKE_CXX_COMPILER_VERSION}: C++20 as GCC 12 and Clang 14 know it is needed")
if(NOT "cxx_std_20" IN_LIST CMAKE_CXX_COMPILE_FEATURES)
    message(FATAL_ERROR "${unsuitable}")
endif()
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
try_compile(QEL_COMPILER_SUITS ${PROJECT_BINARY_DIR}/compiler_check
            ${CMAKE_CURRENT_LIST_DIR}/compiler_check.cpp OUTPUT_VARIABLE output)
unset(CMAKE_TRY_COMPILE_TARGET_TYPE)
if(NOT QEL_COMPILER_SUITS)
    unset(QEL_COMPILER_SUITS CACHE)
    string(REGEX MATCH "error: [^\n]*" reason "${output}")
    message(FATAL_ERROR "${unsuitable} (${reason})")
endif()

# Who this is: packages and recipes take name, version and licence from here alone. project() needs
# it first, and packaging/recipes.cmake reads it without configuring a build.
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH QEL_ROOT)

# The version is the one that the library prints.
file(STRINGS ${QEL_ROOT}/qel/core/qel_version.cpp version REGEX "core v[0-9.]+")
string(REGEX REPLACE ".*core v([0-9.]+).*" "\\1" QEL_VERSION "${version}")

set(QEL_DESCRIPTION "Acoustic echo canceller for embedded Linux")
set(QEL_MAINTAINER "QEL maintainers <maintainers@qel.example>" CACHE STRING
    "Who answers for packages and recipes")
set(QEL_HOMEPAGE https://qel.example CACHE STRING "Where the sources are found")

# Once a licence is granted: its SPDX name, and its text as a file of this tree.
set(QEL_LICENSE "" CACHE STRING "The licence by its SPDX name; empty while none is granted")
set(QEL_LICENSE_FILE packaging/no-licence.txt CACHE STRING "Its text, below the sources")

# The product: echo.so, all rooms in one shared library that Lua loads and C programs may link. The
# C driver links it, so that the device needs no C++ runtime.
set(export_map ${PROJECT_SOURCE_DIR}/cmake/exports.map)

add_library(echo SHARED)
qel_use(echo PRIVATE load)
set_target_properties(echo PROPERTIES
    PREFIX "" OUTPUT_NAME echo SUFFIX .so LINKER_LANGUAGE C
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
    LINK_DEPENDS ${export_map})
target_include_directories(echo INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
add_library(qel::echo ALIAS echo)
# Lua's symbols stay undefined: they come from the host interpreter.
target_link_options(echo PRIVATE -Wl,--version-script=${export_map} -Wl,--as-needed)

set(QEL_LUA_DIR ${CMAKE_INSTALL_LIBDIR}/lua/5.1 CACHE STRING
    "Where Lua 5.1 looks for modules, absolute or below the prefix")

# The same job as examples/cancel.lua, from C.
add_executable(cancel examples/cancel.c)
target_link_libraries(cancel PRIVATE echo m)
set_target_properties(cancel PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/examples)

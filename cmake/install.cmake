# What `cmake --install` brings, by the components that packages are made of: runtime, dev, and
# tools and pipewire where those are built.
# Paths below the prefix are kept relative, so that an installed tree can be moved.
set(module_destination ${QEL_LUA_DIR})
cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX ${QEL_LUA_DIR} below_prefix)
if(below_prefix)
    cmake_path(RELATIVE_PATH module_destination BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
endif()

install(TARGETS echo EXPORT qel LIBRARY DESTINATION ${module_destination} COMPONENT runtime)
file(GLOB pages CONFIGURE_DEPENDS docs/*.md docs/*.png)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT runtime)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

install(DIRECTORY qel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
        FILES_MATCHING PATTERN *.h
        PATTERN generic EXCLUDE PATTERN neon EXCLUDE PATTERN x86 EXCLUDE PATTERN simd EXCLUDE)
set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qel)
install(EXPORT qel FILE qelConfig.cmake NAMESPACE qel:: DESTINATION ${cmake_dir} COMPONENT dev)
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qelConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qelConfigVersion.cmake DESTINATION ${cmake_dir} COMPONENT dev)

# Configuration and qel.pc depend on the prefix, which may be given as late as when installing.
configure_file(cmake/install_for_prefix.cmake.in install_for_prefix.cmake @ONLY)
foreach(component runtime dev)
    install(CODE "set(part ${component})" COMPONENT ${component})
    install(SCRIPT ${PROJECT_BINARY_DIR}/install_for_prefix.cmake COMPONENT ${component})
endforeach()

# CPack runs this on what is about to be packed: adds the copyright and the change log that Debian
# wants of every package. Their time is the commit's, so that packages made twice are alike.
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/identity.cmake)
file(READ ${QEL_ROOT}/${QEL_LICENSE_FILE} text)
string(STRIP "${text}" text)
string(REGEX REPLACE "\n\n" "\n.\n" text "${text}")
string(REPLACE "\n" "\n " text "${text}")
set(license ${QEL_LICENSE})
if(NOT license)
    set(license proprietary)
endif()

if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND git -C ${QEL_ROOT} log -1 --format=%ct OUTPUT_VARIABLE epoch
                    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(epoch)
        set(ENV{SOURCE_DATE_EPOCH} ${epoch})
    endif()
endif()
string(TIMESTAMP year %Y UTC)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)

foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} key)
    set(package ${CPACK_DEBIAN_${key}_PACKAGE_NAME})
    set(folder ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/doc/${package})
    file(WRITE ${folder}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: qel
Source: ${QEL_HOMEPAGE}

Files: *
Copyright: ${year} the QEL authors
License: ${license}
 ${text}
")
    file(WRITE ${folder}/changelog
"qel (${QEL_VERSION}) unstable; urgency=medium

  * What changed is in /usr/share/doc/qel/CHANGELOG.md of the package qel.

 -- ${QEL_MAINTAINER}  ${date}
")
    file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/man/*)
    execute_process(COMMAND gzip -9nf ${folder}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

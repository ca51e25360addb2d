# The Debian packages: one a component of cmake/installation.cmake. scripts/package makes them.

if(NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()

set(MARL_MAINTAINER "sentrel maintainers <maintainers@sentrel.invalid>" CACHE STRING "Who answers for the packages")

# CMake speaks of instruction sets as the kernel and the compiler do, packages as Debian does.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "armv5te")
    set(architecture armel)
else()
    execute_process(
        COMMAND dpkg --print-architecture
        OUTPUT_VARIABLE architecture
        OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME marl)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT ${MARL_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/compress_manual.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# Dependencies on other people's libraries: Debian's own tool finds them for the machine's packages, and knows nothing of
# others; for those they are worked out when the packages are made.
if(CMAKE_CROSSCOMPILING)
    set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/foreign_dependencies.cmake)
    set(CPACK_READELF ${CMAKE_READELF})
    set(CPACK_MARL_BUILD ${PROJECT_BINARY_DIR})
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
endif()

# The releases in the form of Debian's tools.
set(changelog ${PROJECT_BINARY_DIR}/changelog.gz)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
execute_process(
    COMMAND sh ${PROJECT_SOURCE_DIR}/packaging/debian-changelog ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CPACK_PACKAGE_NAME} ${MARL_MAINTAINER}
    COMMAND gzip -9n
    OUTPUT_FILE ${changelog})

# marl_package(COMPONENT NAME SECTION SUMMARY DESCRIPTION [ALL] [DEPENDS package...] [CONTROL file...]): the package of a
# component. Files that every package has are installed with its component.
function(marl_package component name section summary description)
    cmake_parse_arguments(package "ALL" "" "DEPENDS;SUGGESTS;CONTROL" ${ARGN})
    set(doc ${CMAKE_INSTALL_DATADIR}/doc/${name})
    install(FILES ${changelog} packaging/copyright DESTINATION ${doc} COMPONENT ${component})
    if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/${name}.lintian-overrides)
        install(
            FILES packaging/${name}.lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            RENAME ${name}
            COMPONENT ${component})
    endif()

    list(APPEND CPACK_COMPONENTS_ALL ${component})
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} PARENT_SCOPE)
    string(TOUPPER ${component} COMPONENT)
    list(JOIN package_DEPENDS ", " depends)
    list(JOIN package_SUGGESTS ", " suggests)
    set(CPACK_COMPONENT_${COMPONENT}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SUGGESTS "${suggests}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_CONTROL_EXTRA "${package_CONTROL}" PARENT_SCOPE)
    if(package_ALL)
        set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_ARCHITECTURE all PARENT_SCOPE)
    endif()
endfunction()

# What programs that are linked with the library have to depend on, for the tools that make their packages.
set(control ${PROJECT_BINARY_DIR}/control)
file(CONFIGURE OUTPUT ${control}/shlibs CONTENT "libmarl ${PROJECT_VERSION_MAJOR} libmarl1 (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT ${control}/triggers CONTENT "activate-noawait ldconfig\n")
file(CONFIGURE OUTPUT ${control}/conffiles CONTENT "/etc/default/sentrel\n/etc/init.d/sentrel\n")

set(this_version "(= ${PROJECT_VERSION})")

marl_package(
    library libmarl1 libs "board support library of the network video device"
    "Board identification, boot environment, CMOS bytes, GPIO lines, network
settings, raw flash, 3G modem, co-processors and the watchdog, for every
program of the device."
    CONTROL ${control}/shlibs ${control}/triggers)
marl_package(
    development libmarl-dev libdevel "development files of the board support library"
    "Headers for C11 and C++20, the shared and the static library to link with,
descriptions for pkg-config and CMake, and example programs."
    DEPENDS "libmarl1 ${this_version}"
    SUGGESTS marl-sim marl-doc)
marl_package(
    daemon sentrel admin "board supervisor of the network video device"
    "Arms the watchdog, sets the clock, looks after the video processes, the
Ethernet MAC and the co-processor, and reboots the board when nothing else
helps. Nothing starts it when the package is installed: enable the init
script or the systemd unit on boards that it is to supervise."
    DEPENDS "libmarl1 ${this_version}"
    CONTROL ${control}/conffiles)
marl_package(
    simulator marl-sim devel "simulated board to run the supervisor and clients of libmarl on"
    "Boots the daemon, or any program that links libmarl, on a board that is
not there: with models of its devices, a clock of its own, faults on
demand and a journal. Nothing that the program does reaches the machine."
    DEPENDS "libmarl1 ${this_version}" "sentrel ${this_version}" python3
    SUGGESTS libmarl-dev)
if(TARGET marl_tool)
    get_target_property(tool_directory marl_tool BINARY_DIR)
    set(CPACK_MARL_TOOL ${tool_directory}/marl)
    marl_package(
        tools marl-tools admin "command-line tool over the board support library"
        "Shows and sets what libmarl knows of a board: its identity, boot
environment, GPIO lines, CMOS bytes, network settings, flash, modem,
watchdog and upgrade flag."
        DEPENDS "libmarl1 ${this_version}")
endif()
# The manual is the same for every architecture, and made for the packages of the machine.
if(NOT CMAKE_CROSSCOMPILING)
    marl_package(
        doc marl-doc doc "manual of the board support library"
        "Manual pages of every call and an HTML reference with worked examples,
the architecture of the code and how to bring up a new board."
        ALL)
endif()

include(CPack)

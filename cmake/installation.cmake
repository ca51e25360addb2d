# What is installed, and to which component each file belongs. A package holds one component (cmake/packaging.cmake), so
# `cmake --install DIRECTORY --component X` gives what its package has, but for the files of the packages' own.
#
#   library       libmarl.so.1, for programs that are there
#   development   headers, libraries to link with, descriptions for pkg-config and CMake, examples
#   daemon        sentrel with its init script and its page of the manual
#   tools         the command-line tool
#   simulator     the simulated board with its boards, launcher and runner
#   doc           the manual of the library

# /etc beside /usr, and below any other prefix; known when it is installed.
install(CODE "
    set(marl_etc etc)
    if(CMAKE_INSTALL_PREFIX MATCHES \"/usr$\")
        set(marl_etc ../etc)
    endif()" ALL_COMPONENTS)
set(etc "\${marl_etc}")

# must_be_built COMPONENT FILE...: installing says what is missing before anything is copied.
function(must_be_built component)
    install(CODE "
    foreach(file ${ARGN})
        if(NOT EXISTS \"${PROJECT_BINARY_DIR}/\${file}\")
            message(FATAL_ERROR \"\${file} is not built yet: cmake --build ${PROJECT_BINARY_DIR}\")
        endif()
    endforeach()" COMPONENT ${component})
endfunction()

# ---- Library ---------------------------------------------------------------------------------------------------

must_be_built(library libmarl.so.${PROJECT_VERSION})
install(
    TARGETS marl
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
            NAMELINK_COMPONENT development)

# ---- Development -----------------------------------------------------------------------------------------------

# Both package descriptions find their prefix from where they lie, so that a staged installation describes itself.
set(package_directory ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH package_to_prefix ${package_directory} ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/libmarl.pc.in libmarl.pc @ONLY)

include(CMakePackageConfigHelpers)
configure_package_config_file(
    cmake/marl-config.cmake.in marl-config.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/marl
    PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/marl-config-version.cmake COMPATIBILITY SameMajorVersion)

must_be_built(development libmarl.a)
install(FILES ${static_library} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
        execute_process(
            COMMAND \"${CMAKE_STRIP}\" --strip-debug --enable-deterministic-archives
                    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libmarl.a\"
            COMMAND_ERROR_IS_FATAL ANY)
    endif()" COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/libmarl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(
    FILES ${PROJECT_BINARY_DIR}/marl-config.cmake ${PROJECT_BINARY_DIR}/marl-config-version.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/marl
    COMPONENT development)
install(
    DIRECTORY include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development
    FILES_MATCHING
    PATTERN "*.h")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libmarl-dev COMPONENT development)

# ---- Daemon ----------------------------------------------------------------------------------------------------

must_be_built(daemon sentrel)
install(TARGETS sentrel RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(FILES docs/sentrel.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon)
install(PROGRAMS packaging/sentrel.init DESTINATION ${etc}/init.d RENAME sentrel COMPONENT daemon)
install(FILES packaging/sentrel.default DESTINATION ${etc}/default RENAME sentrel COMPONENT daemon)
install(FILES packaging/sentrel.service DESTINATION lib/systemd/system COMPONENT daemon)

# ---- Simulated board -------------------------------------------------------------------------------------------

# All of it in one folder, as the runner wants it, with the daemon in it under its name.
must_be_built(simulator libmarlsim.so sim-launch)
set(simulator ${CMAKE_INSTALL_LIBDIR}/marl-sim)
install(TARGETS marlsim LIBRARY DESTINATION ${simulator} COMPONENT simulator)
install(TARGETS sim-launch RUNTIME DESTINATION ${simulator} COMPONENT simulator)
install(DIRECTORY sim/boards DESTINATION ${simulator} COMPONENT simulator)
install(
    DIRECTORY sim/run
    DESTINATION ${simulator}
    COMPONENT simulator
    PATTERN "__pycache__" EXCLUDE)
file(RELATIVE_PATH to_daemon /${simulator} /${CMAKE_INSTALL_SBINDIR}/sentrel)
install(CODE "
    file(CREATE_LINK \"${to_daemon}\" \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${simulator}/sentrel\" SYMBOLIC)"
        COMPONENT simulator)
file(RELATIVE_PATH command_to_simulator /${CMAKE_INSTALL_BINDIR} /${simulator})
configure_file(packaging/marl-sim.in marl-sim @ONLY)
install(PROGRAMS ${PROJECT_BINARY_DIR}/marl-sim DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT simulator)
install(FILES packaging/marl-sim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT simulator)
install(FILES docs/simulated-board.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/marl-sim COMPONENT simulator)

# ---- Manual ----------------------------------------------------------------------------------------------------

# What scripts/docs makes is installed by rules of its own; these are the pages that need no making.
install(
    FILES docs/architecture.md docs/porting.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/marl-doc
    COMPONENT doc)

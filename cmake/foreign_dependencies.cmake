# Dependencies of packages for another architecture than the machine's, worked out from the binaries: the libraries that
# they name, at the highest version of an interface that they ask for. Included by CPack before it makes the packages.

# marl_highest(TEXT PREFIX OUT): the highest version of an interface, "2.34" of GLIBC_2.34; empty when there is none.
function(marl_highest text prefix out)
    set(highest "")
    string(REGEX MATCHALL "${prefix}_[0-9.]+" found "${text}")
    foreach(version IN LISTS found)
        string(REPLACE "${prefix}_" "" version ${version})
        if(highest STREQUAL "" OR version VERSION_GREATER highest)
            set(highest ${version})
        endif()
    endforeach()
    set(${out} "${highest}" PARENT_SCOPE)
endfunction()

# marl_depend(COMPONENT BINARY...): adds what the binaries need to the dependencies of the component's package.
function(marl_depend component)
    set(text "")
    foreach(binary IN LISTS ARGN)
        execute_process(
            COMMAND ${CPACK_READELF} --wide --dynamic --version-info ${binary}
            OUTPUT_VARIABLE part
            COMMAND_ERROR_IS_FATAL ANY)
        string(APPEND text "${part}")
    endforeach()
    set(depends ${CPACK_DEBIAN_${component}_PACKAGE_DEPENDS})
    marl_highest("${text}" GLIBC libc)
    list(APPEND depends "libc6 (>= ${libc})")
    if(text MATCHES "libgcc_s")
        marl_highest("${text}" GCC gcc)
        list(APPEND depends "libgcc-s1 (>= ${gcc})")
    endif()
    # Debian numbers this library after the compiler: the release that the sources are built with has all they ask for.
    if(text MATCHES "libstdc\\+\\+")
        list(APPEND depends "libstdc++6 (>= 12)")
    endif()
    list(JOIN depends ", " depends)
    set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
endfunction()

marl_depend(LIBRARY ${CPACK_MARL_BUILD}/libmarl.so)
marl_depend(DAEMON ${CPACK_MARL_BUILD}/sentrel)
marl_depend(SIMULATOR ${CPACK_MARL_BUILD}/libmarlsim.so ${CPACK_MARL_BUILD}/sim-launch)
if(CPACK_MARL_TOOL)
    marl_depend(TOOLS ${CPACK_MARL_TOOL})
endif()

# Compresses the pages of the manual as packages have them. Run by CPack when all files are in place; a page that is
# another one under a second name stays that.

file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*)
foreach(page IN LISTS pages)
    if(page MATCHES "\\.gz$")
        continue()
    elseif(IS_SYMLINK ${page})
        file(READ_SYMLINK ${page} target)
        file(REMOVE ${page})
        file(CREATE_LINK ${target}.gz ${page}.gz SYMBOLIC)
    else()
        execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()

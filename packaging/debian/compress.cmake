# Manual pages and changelogs are compressed in a package, the same bytes every time.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*" "${CPACK_TEMPORARY_DIRECTORY}/*/changelog")
foreach(page IN LISTS pages)
    if(NOT page MATCHES "\\.gz$")
        execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()

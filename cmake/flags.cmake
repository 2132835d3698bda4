# dv_warnings: what every target is compiled with. dv_hardening: for what is installed.

add_library(dv_warnings INTERFACE)
target_compile_options(dv_warnings INTERFACE -Wall -Wextra -Wpedantic
    $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wshadow -Wnon-virtual-dtor>)
if(DV_WERROR)
    target_compile_options(dv_warnings INTERFACE -Werror)
endif()

if(DV_SANITIZE)
    add_compile_options(-fsanitize=${DV_SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${DV_SANITIZE})
    if(DV_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()

if(DV_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic -fprofile-abs-path)
    add_link_options(--coverage)
endif()

add_library(dv_hardening INTERFACE)
target_compile_options(dv_hardening INTERFACE -fstack-protector-strong)
if(NOT DV_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_options(dv_hardening INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
endif()
# New dtags: the search path stays replaceable by LD_LIBRARY_PATH.
target_link_options(dv_hardening INTERFACE -Wl,-z,relro,-z,now -Wl,--as-needed -Wl,--enable-new-dtags)

# dv_find(PACKAGE ...): find_package that fails only where everything is asked for.
macro(dv_find package)
    if(DV_REQUIRE_ALL)
        find_package(${package} REQUIRED ${ARGN})
    else()
        find_package(${package} QUIET ${ARGN})
        if(NOT ${package}_FOUND)
            message(STATUS "${package} not found: what needs it is left out")
        endif()
    endif()
endmacro()

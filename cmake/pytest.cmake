# DV_PYTHON: Python, Debian's before another one on the path, which need not have pytest. DV_PYTEST: whether it has.
find_program(DV_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(DV_PYTHON NAMES python3)
set(DV_PYTEST OFF)
if(DV_PYTHON)
    execute_process(COMMAND ${DV_PYTHON} -c "import pytest" RESULT_VARIABLE result OUTPUT_QUIET ERROR_QUIET)
    if(result EQUAL 0)
        set(DV_PYTEST ON)
    endif()
endif()
if(NOT DV_PYTEST)
    if(DV_REQUIRE_ALL)
        message(FATAL_ERROR "The tests need Python with pytest")
    endif()
    message(STATUS "pytest not found: the tests that are written in Python are left out")
endif()

# dv_add_pytest(NAME [LABELS label...] [TIMEOUT seconds] [ENVIRONMENT name=value...] ARGUMENTS argument...)
# A test that runs pytest with these arguments in this folder, on the built programs.
function(dv_add_pytest name)
    cmake_parse_arguments(PARSE_ARGV 1 given "" "TIMEOUT" "LABELS;ENVIRONMENT;ARGUMENTS")
    if(NOT given_TIMEOUT)
        set(given_TIMEOUT 900) # four times what a slow machine needs, since all may last four times as long
    endif()
    add_test(NAME ${name} WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
        COMMAND ${DV_PYTHON} -m pytest -q -rs -p no:cacheprovider --tb=short ${given_ARGUMENTS})
    set(environment DV_BUILD=${CMAKE_BINARY_DIR} PYTHONDONTWRITEBYTECODE=1 ${given_ENVIRONMENT})
    # Long ones begin first, so that the short ones fill what is left.
    set_tests_properties(${name} PROPERTIES LABELS "${given_LABELS}" TIMEOUT ${given_TIMEOUT} COST 10
        ENVIRONMENT "${environment}")
endfunction()

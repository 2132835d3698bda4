# The core: start-up, requests, queues, workers, the AT channel, the modem's initialisation, sending.
add_unit_test(unit_core
    core_bench.cpp
    core_main_test.cpp
    core_contract_test.cpp
    core_handler_test.cpp
    core_flags_test.cpp
    core_queue_test.cpp
    core_init_test.cpp
    core_retry_test.cpp
    core_sending.cpp
    core_send_test.cpp
    core_segment_test.cpp
    ${daemon_main})
set_source_files_properties(core_flags_test.cpp core_retry_test.cpp core_send_test.cpp core_sending.cpp PROPERTIES
    SKIP_UNITY_BUILD_INCLUSION ON) # names of their own that others have too
target_link_options(unit_core PRIVATE -Wl,--wrap=pthread_detach)
if(CMAKE_CROSSCOMPILING)
    target_compile_definitions(unit_core PRIVATE DV_EMULATED)
endif()
discover_unit_tests(unit_core unit-threads TEST_PREFIX core.)

add_unit_test(unit_core_threads
    core_bench.cpp
    core_at_test.cpp
    core_workers_test.cpp
    core_concurrency_test.cpp
    ${daemon_main})
discover_unit_tests(unit_core_threads unit-threads TEST_PREFIX core.)

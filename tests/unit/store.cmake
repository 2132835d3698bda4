# The store and what fills it: receiving, filing, reading, deleting, the start, notices, test messages.
add_unit_test(unit_store
    store_bench.cpp
    store_seams.cpp
    receive_indication_test.cpp
    receive_retrieval_test.cpp
    receive_parts_test.cpp
    receive_redirect_test.cpp
    store_write_test.cpp
    store_capacity_test.cpp
    store_start_test.cpp
    store_lock_test.cpp
    read_mark_test.cpp
    read_delete_test.cpp
    notice_failover_test.cpp
    notice_warning_test.cpp
    generate_test.cpp)
target_link_options(unit_store PRIVATE -Wl,--wrap=opendir -Wl,--wrap=readdir -Wl,--wrap=rename)
discover_unit_tests(unit_store unit TEST_PREFIX store.)

add_unit_test(unit_store_threads
    store_bench.cpp
    store_threads_test.cpp)
discover_unit_tests(unit_store_threads unit-threads TEST_PREFIX store.)

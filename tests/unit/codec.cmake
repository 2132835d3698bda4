# The codec: character sets, decoding, joining, encoding, and vectors from elsewhere.
dv_find(nlohmann_json)
add_unit_test(unit_codec
    vectors/reference.cpp
    test_charset_hex.cpp
    test_charset_septets.cpp
    test_charset_tables.cpp
    test_charset_unicode.cpp
    test_encode_parts.cpp
    test_encode_pdu.cpp
    test_encode_phone.cpp
    test_pdu_bounds.cpp
    test_pdu_decode.cpp
    test_pdu_join.cpp
    test_pdu_known.cpp)
if(nlohmann_json_FOUND) # reads the collected PDUs; Debian's JSON library rather than a parser of our own
    target_sources(unit_codec PRIVATE test_pdu_collected.cpp)
    target_link_libraries(unit_codec PRIVATE nlohmann_json::nlohmann_json)
endif()
discover_unit_tests(unit_codec unit TEST_PREFIX codec.)

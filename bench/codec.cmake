# Codec benchmark: TLV and IDR encode and decode of a flat record of about 250 bytes and of a
# record with a nested header, a blob and a list of two sub-records, each against memcpy of the
# same encoded bytes in the same run.
tarlink_idl_test_records()
add_executable(bench_codec codec_bench.cc)
target_link_libraries(bench_codec PRIVATE idl_test_records benchmark::benchmark_main)
tarlink_warnings(bench_codec)

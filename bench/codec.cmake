# Codec benchmark: TLV and IDR encode and decode of a flat record of about 250 bytes and of a
# record with a nested header, a blob and a list of two sub-records, each against memcpy of the
# same encoded bytes in the same run.
tarlink_idl_test_records()
add_executable(bench_codec codec_bench.cc)
target_link_libraries(bench_codec PRIVATE idl_test_records benchmark::benchmark_main)
tarlink_warnings(bench_codec)

# The peer side by side: the same two messages through protobuf, when its library and compiler
# are installed (a bench-only dependency).
find_package(Protobuf QUIET)
if(Protobuf_FOUND AND Protobuf_PROTOC_EXECUTABLE)
  protobuf_generate_cpp(CODEC_PEER_SRCS CODEC_PEER_HDRS codec_peer.proto)
  set_source_files_properties(${CODEC_PEER_SRCS} PROPERTIES COMPILE_OPTIONS "-w")
  target_sources(bench_codec PRIVATE ${CODEC_PEER_SRCS})
  target_include_directories(bench_codec SYSTEM PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
  target_link_libraries(bench_codec PRIVATE protobuf::libprotobuf)
  target_compile_definitions(bench_codec PRIVATE TARLINK_BENCH_PROTOBUF)
else()
  message(STATUS "bench_codec: protobuf not found, the protobuf peer is compiled out")
endif()

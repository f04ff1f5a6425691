# Notification delivery: end to end through the simulated kernel and tarvik_async_event_process,
# with bulk packing on and off, against the per-message work alone on the same bytes.
add_executable(bench_async async_bench.cc)
target_link_libraries(bench_async PRIVATE tarsim_static benchmark::benchmark_main)
tarlink_warnings(bench_async)

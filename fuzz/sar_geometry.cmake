# Fuzz targets of the radar geometry family: the Sentinel-1 annotation, calibration and noise readers with the
# deburst arithmetic that consumes them, the CEOS leader, image descriptor and line prefix readers, and the COSAR
# burst headers with the TerraSAR-X annotation, and the RPC text layout.
target_compile_options(sar_geometry_common PRIVATE ${ALGO_FUZZ_FLAGS})
add_algo_fuzzer(fuzz_s1_annotation fuzz_s1_annotation.cpp LIBS sar_geometry_common)
add_algo_fuzzer(fuzz_ceos_leader fuzz_ceos_leader.cpp LIBS sar_geometry_common)
add_algo_fuzzer(fuzz_cosar_header fuzz_cosar_header.cpp LIBS sar_geometry_common)
add_algo_fuzzer(fuzz_sar_rpc_text fuzz_sar_rpc_text.cpp LIBS sar_geometry_common)

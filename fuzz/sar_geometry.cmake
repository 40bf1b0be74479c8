# Fuzz targets of the radar geometry family: the Sentinel-1 annotation, calibration and noise readers and the
# deburst arithmetic that consumes them.
target_compile_options(sar_geometry_common PRIVATE ${ALGO_FUZZ_FLAGS})
add_algo_fuzzer(fuzz_s1_annotation fuzz_s1_annotation.cpp LIBS sar_geometry_common)

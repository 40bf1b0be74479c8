# Radar processing: the config.txt of polarimetric folders (parsed as text, then a folder with it inspected).
add_algo_fuzzer(fuzz_polsar_config fuzz_polsar_config.cpp
    ${CMAKE_SOURCE_DIR}/plugins/sar_processing/sar_common/polsar_layout.cpp LIBS Qt5::Core)

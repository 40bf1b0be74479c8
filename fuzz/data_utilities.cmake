# Fuzz target of the data utilities: the source metadata XML reader and the band-selection text.
set(data_utilities_common_dir ${CMAKE_SOURCE_DIR}/plugins/data_utilities/data_utilities_common)
add_algo_fuzzer(fuzz_source_metadata fuzz_source_metadata.cpp ${data_utilities_common_dir}/source_metadata.cpp
    ${data_utilities_common_dir}/band_groups.cpp LIBS Qt5::Core)
target_include_directories(fuzz_source_metadata PRIVATE ${data_utilities_common_dir})

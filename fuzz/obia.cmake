# Text readers of the object-based classification plug-ins: the class-merge rule and the segment sample table.
set(obia_common_dir ${CMAKE_SOURCE_DIR}/plugins/obia/obia_common)
add_algo_fuzzer(fuzz_union_rule fuzz_union_rule.cpp ${obia_common_dir}/union_rule.cpp LIBS Qt5::Core)
target_include_directories(fuzz_union_rule PRIVATE ${obia_common_dir})
add_algo_fuzzer(fuzz_sample_table fuzz_sample_table.cpp ${obia_common_dir}/segment_samples.cpp
    ${obia_common_dir}/segment_classifier.cpp ${obia_common_dir}/segment_features.cpp LIBS algo_kit algo_opencv)
target_include_directories(fuzz_sample_table PRIVATE ${obia_common_dir})

# Batch files (the host's batch command): line reader, references, report reader.
add_algo_fuzzer(fuzz_batch_lines fuzz_batch_lines.cpp ${CMAKE_SOURCE_DIR}/app/batch_file.cpp
    ${CMAKE_SOURCE_DIR}/app/batch_report.cpp LIBS Qt5::Core)
target_include_directories(fuzz_batch_lines PRIVATE ${CMAKE_SOURCE_DIR}/app)

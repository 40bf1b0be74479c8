# Readers of the optical geometry family: RPC text files and control point lists.
set(optgeo_common ${CMAKE_SOURCE_DIR}/plugins/optical_geometry/optical_geometry_common)
add_algo_fuzzer(fuzz_rpc_text fuzz_rpc_text.cpp ${optgeo_common}/rpc_model.cpp)
target_include_directories(fuzz_rpc_text PRIVATE ${optgeo_common})
add_algo_fuzzer(fuzz_control_points fuzz_control_points.cpp ${optgeo_common}/rpc_model.cpp)
target_include_directories(fuzz_control_points PRIVATE ${optgeo_common})

# Fuzz target of the catalogue family: the product-name and metadata recogniser and the Landsat MTL factors.
add_algo_fuzzer(fuzz_product_metadata fuzz_product_metadata.cpp
    ${CMAKE_SOURCE_DIR}/plugins/catalogue/catalogue_common/product_recognition.cpp
    ${CMAKE_SOURCE_DIR}/plugins/catalogue/catalogue_common/landsat_calibration.cpp LIBS Qt5::Core)
target_include_directories(fuzz_product_metadata PRIVATE ${CMAKE_SOURCE_DIR}/plugins/catalogue/catalogue_common)

# Fuzz targets of the optical product readers: Landsat MTL, Sentinel-2 product and tile XML, coefficient tables.
target_compile_options(optical_products PRIVATE ${ALGO_FUZZ_FLAGS})
add_algo_fuzzer(fuzz_mtl_file fuzz_mtl_file.cpp LIBS optical_products)
add_algo_fuzzer(fuzz_s2_mtd_xml fuzz_s2_mtd_xml.cpp LIBS optical_products)
add_algo_fuzzer(fuzz_coefficient_table fuzz_coefficient_table.cpp LIBS optical_products)

# Helpers that keep each plug-in and each test folder down to one or two CMake lines.

# Sources of a target that exist; a folder whose files are still being written warns instead of
# breaking the configuration of the whole tree.
function(existing_sources out name)
    set(found)
    foreach(source ${ARGN})
        if(IS_ABSOLUTE ${source} OR EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${source})
            list(APPEND found ${source})
        else()
            message(WARNING "${name}: ${source} is missing and left out")
        endif()
    endforeach()
    if(NOT found)
        file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${name}_placeholder.cpp "")
        set(found ${CMAKE_CURRENT_BINARY_DIR}/${name}_placeholder.cpp)
    endif()
    set(${out} ${found} PARENT_SCOPE)
endfunction()

# add_algo_plugin(Name source...): builds lib<Name>.so into bin/ on the plug-in kit.
function(add_algo_plugin name)
    existing_sources(sources ${name} ${ARGN})
    add_library(${name} MODULE ${sources})
    target_link_libraries(${name} PRIVATE algo_kit)
    set_target_properties(${name} PROPERTIES PREFIX "lib")
    add_dependencies(algo_plugins ${name})
endfunction()

# add_algo_test(name source...): a GoogleTest executable registered with CTest, run inside an
# offscreen QApplication. add_algo_test_without_app: the same with a plain main (no Qt application).
function(add_algo_test name)
    existing_sources(sources ${name} ${ARGN})
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE algo_test_support algo_test_main)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    gtest_discover_tests(${name} WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/tests
        DISCOVERY_TIMEOUT 60 PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()

function(add_algo_test_without_app name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE algo_test_support GTest::gtest_main)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    gtest_discover_tests(${name} WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/tests
        DISCOVERY_TIMEOUT 60 PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()

# Adds every immediate or second-level subfolder of dir that holds a CMakeLists.txt.
function(add_subfolders_with_cmake dir depth)
    if(depth EQUAL 1)
        file(GLOB children LIST_DIRECTORIES true ${dir}/*)
    else()
        file(GLOB children LIST_DIRECTORIES true ${dir}/*/*)
    endif()
    list(SORT children)
    foreach(child ${children})
        if(IS_DIRECTORY ${child} AND EXISTS ${child}/CMakeLists.txt)
            add_subdirectory(${child})
        endif()
    endforeach()
endfunction()

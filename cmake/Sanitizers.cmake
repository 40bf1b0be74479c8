# Sanitizer builds: one option each, applied to every target of the tree.
if(ALGO_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()
if(ALGO_TSAN)
    # A target_clones resolver runs while the library is relocated, before ThreadSanitizer has started, and
    # crashes in its instrumentation: this build compiles the generic version only.
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer "-Dtarget_clones(...)=used")
    add_link_options(-fsanitize=thread)
endif()
# Instrumented test programs report at exit (leaks in system libraries, for instance) unless given the options and
# suppressions of scripts/sanitizers.sh: list their tests when CTest runs, where those settings are in force.
if(ALGO_SANITIZE OR ALGO_TSAN)
    set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
endif()

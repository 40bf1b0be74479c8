// Fuzz target: the class-merge rule of CategoryUnion ("1,2->1;3,4,5->2").
#include "fuzz_support.h"
#include "union_rule.h"

#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const obia::UnionRule rule = obia::parseUnionRule(QString::fromUtf8(reinterpret_cast<const char*>(data), int(size)));
    // A rule either parsed into a non-empty map or says what is wrong (and holds no class), never both.
    if (rule.error.isEmpty() == rule.target.empty())
        __builtin_trap();
    return 0;
}

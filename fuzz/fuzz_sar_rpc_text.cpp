// Fuzz target: bytes read as a radar RPC in the "key = value;" layout (.rpc of GF-3 products, .RPB), written back and
// read again to the same model.
#include "fuzz_support.h"
#include "rpc_model.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    sargeo::RpcModel model;
    try
    {
        model = sargeo::parseRpcGroupText(std::string(reinterpret_cast<const char*>(data), size));
    }
    catch (const std::runtime_error&)
    {
        return 0;
    }
    // What was read is finite with non-zero scales, and survives a round trip through the writer.
    if (!std::isfinite(model.lineOffset) || model.lineScale == 0.0 || model.lonScale == 0.0)
        std::abort();
    // The writer keeps 16 significant digits.
    auto close = [](double a, double b) { return std::abs(a - b) <= 1e-14 * std::max(std::abs(a), std::abs(b)); };
    const sargeo::RpcModel again = sargeo::parseRpcGroupText(sargeo::formatRpcGroupText(model, "F"));
    for (size_t i = 0; i < 20; ++i)
        if (!close(again.lineNum[i], model.lineNum[i]) || !close(again.sampDen[i], model.sampDen[i]))
            std::abort();
    if (!close(again.heightOffset, model.heightOffset))
        std::abort();
    return 0;
}

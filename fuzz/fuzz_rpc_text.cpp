// Fuzz target: RPC text files (.RPB, _RPC.TXT, GF/ZY key lists) parsed into the model and evaluated.
#include "rpc_model.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    optgeo::RpcModel model;
    std::string error;
    if (optgeo::parseRpcText(std::string(reinterpret_cast<const char*>(data), size), &model, &error))
    {
        double sample = 0, line = 0;
        optgeo::rpcGroundToImage(model, model.longOff, model.latOff, model.heightOff, &sample, &line);
    }
    return 0;
}

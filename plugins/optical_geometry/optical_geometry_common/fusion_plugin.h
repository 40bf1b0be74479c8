// The plug-in shape shared by the pan-sharpening algorithms: each states how it reads its own
// parameters into a FusionRequest; the run and its outputs are common.
#pragma once

#include "fusion_driver.h"

#include "plugin_base.h"
#include "records/generic_record.h"

namespace optgeo
{

class FusionPlugin : public algokit::PluginBase
{
public:
    using PluginBase::PluginBase;

protected:
    virtual FusionRequest request(const algokit::GenericParams& args) const = 0;

    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        const algokit::GenericParams args(record, GetName());
        const FusionRequest wanted = request(args);
        const FusionOutcome outcome = runFusion(args, wanted,
                                                {[this](double p) { progress(p); },
                                                 [this](const QString& path) { claimOutput(path); }});
        setResult(algokit::GenericOutputs().add("QualityFile", outcome.qualityPath).result());
        progress(100);
        return true;
    }

    // ResampleMethod 0 nearest, 1 bilinear, 2 cubic.
    static Interpolation interpolationOf(const algokit::GenericParams& args, int fallback)
    {
        return Interpolation(int(args.integer("ResampleMethod").orDefault(fallback).range(0, 2)));
    }
};

} // namespace optgeo

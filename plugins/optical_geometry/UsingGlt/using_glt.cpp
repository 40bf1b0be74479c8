// Plug-in "UsingGlt": a swath image put on the map grid of its geometric lookup table.
#include "generic_params.h"
#include "plugin_base.h"

#include <cstdlib>

namespace
{

using algokit::AlgoError;
using algokit::DatasetPtr;

class UsingGlt : public algokit::PluginBase
{
public:
    UsingGlt() : PluginBase(QStringLiteral("UsingGlt")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        DatasetPtr input = args.text("InputFile").required().existingFile().openRaster();
        const QString gltPath = args.text("GltFile").required().existingFile();
        DatasetPtr glt = args.text("GltFile").openRaster();
        std::vector<int> bands = args.text("Bands").intList();
        // A lookup table gives whole pixels: nearest neighbour is the only resampling.
        args.integer("ResampleMethod").orDefault(0).oneOf({0});
        const int w = input->GetRasterXSize(), h = input->GetRasterYSize();
        if (bands.empty())
            for (int b = 1; b <= input->GetRasterCount(); ++b)
                bands.push_back(b);
        for (int b : bands)
            if (b < 1 || b > input->GetRasterCount())
                args.refuse("Bands", args.text("Bands").value(),
                            QStringLiteral("names a band that the InputFile (%1 bands) does not have").arg(input->GetRasterCount()));
        if (glt->GetRasterCount() != 2 || glt->GetRasterBand(1)->GetRasterDataType() != GDT_Int32 ||
            glt->GetRasterBand(2)->GetRasterDataType() != GDT_Int32)
            args.refuse("GltFile", gltPath, "is not a lookup table (two Int32 bands of samples and lines)");
        const QString outputPath = args.text("OutputFile").required().writableOutput();
        algokit::checkWholeImageSize(glt.get(), gltPath, 8);
        algokit::checkWholeImageSize(input.get(), args.text("InputFile").value(), 8);

        const int gw = glt->GetRasterXSize(), gh = glt->GetRasterYSize();
        std::vector<int32_t> sample(size_t(gw) * gh), line(size_t(gw) * gh);
        for (auto [band, target] : {std::pair{1, &sample}, std::pair{2, &line}})
            if (glt->GetRasterBand(band)->RasterIO(GF_Read, 0, 0, gw, gh, target->data(), gw, gh, GDT_Int32, 0, 0, nullptr) !=
                CE_None)
                throw AlgoError(QStringLiteral("Cannot read %1").arg(gltPath));
        for (size_t k = 0; k < sample.size(); ++k)
            if (std::abs(sample[k]) > w || std::abs(line[k]) > h || ((sample[k] == 0) != (line[k] == 0)))
                args.refuse("GltFile", gltPath,
                            QStringLiteral("points outside the InputFile (%1 x %2) at cell %3, %4").arg(w).arg(h).arg(k % gw).arg(k / gw));
        progress(5);

        GDALRasterBand* first = input->GetRasterBand(bands[0]);
        int hasNoData = 0;
        const double inputNoData = first->GetNoDataValue(&hasNoData);
        const double noData = hasNoData ? inputNoData : 0.0;
        claimOutput(outputPath);
        algokit::OutputRaster out(outputPath, algokit::driverForPath(outputPath), gw, gh, int(bands.size()),
                                  first->GetRasterDataType());
        out.copyGeoreferencing(glt.get());
        std::vector<double> in(size_t(w) * h), result(size_t(gw) * gh);
        for (size_t i = 0; i < bands.size(); ++i)
        {
            GDALRasterBand* src = input->GetRasterBand(bands[i]);
            if (src->RasterIO(GF_Read, 0, 0, w, h, in.data(), w, h, GDT_Float64, 0, 0, nullptr) != CE_None)
                throw AlgoError(QStringLiteral("Cannot read %1").arg(args.text("InputFile").value()));
            algokit::parallelFor(gh, [&](int begin, int end) {
                for (size_t k = size_t(begin) * gw; k < size_t(end) * gw; ++k)
                    result[k] = sample[k] == 0 ? noData : in[size_t(std::abs(line[k]) - 1) * w + size_t(std::abs(sample[k]) - 1)];
            });
            GDALRasterBand* dst = out.band(int(i));
            dst->SetDescription(src->GetDescription());
            if (char** md = src->GetMetadata())
                dst->SetMetadata(md);
            dst->SetNoDataValue(noData);
            if (dst->RasterIO(GF_Write, 0, 0, gw, gh, result.data(), gw, gh, GDT_Float64, 0, 0, nullptr) != CE_None)
                throw AlgoError(QStringLiteral("Cannot write %1").arg(outputPath));
            progress(5 + 95.0 * (i + 1) / bands.size());
        }
        out.commit();
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(UsingGlt)

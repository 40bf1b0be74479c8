// Plug-in "InSAR_TSX_SLCImport": a TerraSAR-X / TanDEM-X SSC product (level-1 XML and its COSAR files) to one complex
// image per polarisation with its SAR parameter file (calibration constant included). The first polarisation goes
// to OutputFile, the others beside it with "_<pol>" added to the name.
#include "complex_image.h"
#include "generic_params.h"
#include "orbit_vectors.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "record_geometry.h"
#include "s1_product.h"
#include "sar_parameter_file.h"
#include "tsx_product.h"
#include "utc_time.h"

#include <cpl_vsi.h>

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace
{

using namespace sargeo;

struct Layer
{
    TsxLayer layer;
    QString cosar, image, parameterFile;
    std::vector<CosarBurst> bursts;
};

class TsxSlcImport : public algokit::PluginBase
{
public:
    TsxSlcImport() : PluginBase(QStringLiteral("InSAR_TSX_SLCImport")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString xml = args.text("XmlFile").required().existingFile();
        const QString output = args.text("OutputFile").required().writableOutput();
        TsxProduct product;
        try
        {
            product = readTsxProduct(readVirtualFile(xml));
        }
        catch (const std::runtime_error& e)
        {
            args.refuse("XmlFile", xml, QString::fromUtf8(e.what()));
        }
        if (product.orbit.size() < 4)
            args.refuse("XmlFile", xml, QStringLiteral("lists fewer than four orbit state vectors"));

        const QFileInfo out(output);
        const QString driver = algokit::driverForPath(output);
        std::vector<Layer> layers;
        for (size_t i = 0; i < product.layers.size(); ++i)
        {
            Layer l;
            l.layer = product.layers[i];
            l.cosar = QFileInfo(xml).absolutePath() + "/" + QString::fromStdString(l.layer.file);
            l.image = i == 0 ? out.absoluteFilePath()
                             : out.absolutePath() + "/" + out.completeBaseName() + "_" +
                                   QString::fromStdString(l.layer.polarisation) + "." + out.suffix();
            l.parameterFile = sarParameterFilePath(l.image);
            VSIStatBufL stat;
            if (VSIStatL(l.cosar.toUtf8().constData(), &stat) != 0)
                args.refuse("XmlFile", xml, QStringLiteral("names a COSAR file that does not exist: %1").arg(l.cosar));
            VSILFILE* file = VSIFOpenL(l.cosar.toUtf8().constData(), "rb");
            try
            {
                l.bursts = readCosarBursts(static_cast<long long>(stat.st_size), [&](long long at, size_t n, unsigned char* to) {
                    return file && VSIFSeekL(file, vsi_l_offset(at), SEEK_SET) == 0 && VSIFReadL(to, 1, n, file) == n;
                });
            }
            catch (const std::runtime_error& e)
            {
                if (file)
                    VSIFCloseL(file);
                args.refuse("XmlFile", xml, QStringLiteral("has a COSAR file %1 that cannot be used: %2").arg(l.cosar, e.what()));
            }
            VSIFCloseL(file);
            int lines = 0;
            bool sameWidth = true;
            for (const CosarBurst& b : l.bursts)
            {
                lines += b.azimuthSamples;
                sameWidth = sameWidth && b.rangeSamples == product.columns;
            }
            if (!sameWidth || lines != product.rows)
                args.refuse("XmlFile", xml,
                            QStringLiteral("describes %1 x %2 samples but the header of COSAR file %3 gives %4 x %5")
                                .arg(product.columns)
                                .arg(product.rows)
                                .arg(l.cosar)
                                .arg(l.bursts.front().rangeSamples)
                                .arg(lines));
            if (QFileInfo(l.image).absoluteFilePath() == QFileInfo(l.cosar).absoluteFilePath())
                args.refuse("OutputFile", output, QStringLiteral("is an input file"));
            layers.push_back(l);
        }

        QStringList written;
        double done = 0.0;
        for (const Layer& l : layers)
        {
            const SarParameterRecord parameters = record(product, l.layer, int(layers.size()));
            const GDALDataType type = sarimport::complexTypeFor(driver, GDT_Int16);
            claimOutput(l.image);
            algokit::OutputRaster raster(l.image, driver, product.columns, product.rows, 1, type);
            raster.band(0)->SetDescription(l.layer.polarisation.c_str());
            VSILFILE* file = VSIFOpenL(l.cosar.toUtf8().constData(), "rb");
            if (!file)
                return fail(QStringLiteral("Cannot open %1").arg(l.cosar));
            std::unique_ptr<VSILFILE, int (*)(VSILFILE*)> closer(file, VSIFCloseL);
            int line0 = 0;
            std::vector<unsigned char> bytes;
            std::vector<short> samples;
            for (const CosarBurst& b : l.bursts)
            {
                const int step = std::max(1, int((8u << 20) / size_t(b.lineBytes)));
                for (int y = 0; y < b.azimuthSamples; y += step)
                {
                    const int rows = std::min(step, b.azimuthSamples - y);
                    bytes.resize(size_t(rows) * size_t(b.lineBytes));
                    // Four annotation lines open every burst; each range line starts with two 4-byte annotations.
                    if (VSIFSeekL(file, vsi_l_offset(b.offset + (4LL + y) * b.lineBytes), SEEK_SET) != 0 ||
                        VSIFReadL(bytes.data(), 1, bytes.size(), file) != bytes.size())
                        return fail(QStringLiteral("Cannot read %1").arg(l.cosar));
                    samples.resize(size_t(rows) * size_t(b.rangeSamples) * 2);
                    for (int r = 0; r < rows; ++r)
                    {
                        const unsigned char* from = bytes.data() + size_t(r) * size_t(b.lineBytes) + 8;
                        short* to = samples.data() + size_t(r) * size_t(b.rangeSamples) * 2;
                        for (int k = 0; k < 2 * b.rangeSamples; ++k)
                            to[k] = short(uint16_t((uint16_t(from[2 * k]) << 8) | from[2 * k + 1]));
                    }
                    if (raster.band(0)->RasterIO(GF_Write, 0, line0 + y, b.rangeSamples, rows, samples.data(),
                                                 b.rangeSamples, rows, GDT_CInt16, 0, 0) != CE_None)
                        return fail(QStringLiteral("Write failed: %1").arg(l.image));
                    progress(100.0 * (done + line0 + y + rows) / (double(product.rows) * double(layers.size())));
                }
                line0 += b.azimuthSamples;
            }
            raster.commit();
            done += product.rows;
            claimOutput(l.parameterFile);
            QString error;
            if (!WriteSarParameterFile(l.parameterFile, parameters, &error))
                return fail(error);
            written << l.image << l.parameterFile;
        }
        setResult(algokit::GenericOutputs().add("InSAR_TSX_SLCImport_images", written.join('|')).result());
        return true;
    }

private:
    static SarParameterRecord record(const TsxProduct& p, const TsxLayer& layer, int layerCount)
    {
        SarParameterRecord r;
        r.title = p.mission;
        r.sensor = p.mission;
        std::string start = formatUtc(p.referenceDay, p.start);
        start[10] = ' ';
        r.rawDataStartTime = start;
        r.orbitDirection = p.orbitDirection == "ASCENDING" ? "ASCENDING" : "DESCENDING";
        r.lookDirection = p.lookDirection == "LEFT" ? "LEFT" : "RIGHT";
        r.polarizationMode = layerCount >= 4 ? "QUAD" : layerCount == 2 ? "DUAL" : "SINGLE";
        r.polarizationType = layer.polarisation;
        r.startTime = p.start;
        r.endTime = p.stop;
        r.centerTime = 0.5 * (p.start + p.stop);
        r.azimuthLineTime = (p.stop - p.start) / (p.rows - 1);
        r.slantRangeSpacing = kSpeedOfLight / (2.0 * p.rangeSamplingRate);
        r.nearSlantRange = p.firstPixelTime * kSpeedOfLight / 2.0;
        r.centerSlantRange = r.nearSlantRange + (p.columns / 2) * r.slantRangeSpacing;
        r.farSlantRange = r.nearSlantRange + (p.columns - 1) * r.slantRangeSpacing;
        r.incidenceAngle = p.centreIncidence;
        r.numberOfColumns = p.columns;
        r.numberOfRows = p.rows;
        r.azimuthSpacing = p.rowSpacing;
        r.imageDataType = "COMPLEX";
        r.radarCenterFrequency = p.centerFrequency;
        r.radarWavelength = kSpeedOfLight / p.centerFrequency;
        r.adcSamplingRate = p.rangeSamplingRate;
        r.pulseRepetitionFrequency = p.prf;
        r.calibrationGain = layer.calibrationFactor;
        r.sceneCenterLatitude = p.centreLatitude;
        r.sceneCenterLongitude = p.centreLongitude;
        std::vector<double> times;
        std::vector<StateVector> vectors;
        // The record keeps evenly spaced vectors: resample the product's orbit every 10 s over its span.
        const Orbit orbit(p.orbit);
        for (double t = orbit.firstTime(); t <= orbit.lastTime() + 1e-6; t += 10.0)
        {
            Vec3 s, v;
            orbit.at(t, &s, &v);
            times.push_back(t);
            vectors.push_back({s.x(), s.y(), s.z(), v.x(), v.y(), v.z()});
        }
        sarimport::setStateVectors(times, vectors, r);
        try
        {
            setCorners(r, rangeDopplerFromRecord(r), 0.0);
        }
        catch (const std::exception& e)
        {
            throw algokit::AlgoError(QStringLiteral("The orbit does not see the image: %1").arg(e.what()));
        }
        return r;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(TsxSlcImport)

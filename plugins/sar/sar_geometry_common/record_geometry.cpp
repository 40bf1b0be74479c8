// Parameter-record updates for cropped and resampled images.
#include "record_geometry.h"

#include <cmath>

namespace sargeo
{

double cornerHeightOf(const SarParameterRecord& record, const RangeDoppler& model)
{
    const Vec3 centre0 = geodeticToEcef(record.sceneCenterLatitude, record.sceneCenterLongitude, 0.0, model.ellipsoid());
    const double target = 0.5 * (record.numberOfColumns - 1);
    auto pixelAt = [&](double h, double* pixel) {
        const Vec3 p = geodeticToEcef(record.sceneCenterLatitude, record.sceneCenterLongitude, h, model.ellipsoid());
        double line;
        return model.groundToImage(p, &line, pixel);
    };
    double low = -500.0, high = 9000.0, pLow, pHigh;
    if (!pixelAt(low, &pLow) || !pixelAt(high, &pHigh) || (pLow - target) * (pHigh - target) > 0)
        return 0.0;
    (void)centre0;
    for (int i = 0; i < 50; ++i)
    {
        const double mid = 0.5 * (low + high);
        double p;
        if (!pixelAt(mid, &p))
            return 0.0;
        // Higher points are nearer the sensor: the pixel falls as the height rises.
        ((p - target) * (pLow - target) > 0 ? low : high) = mid;
    }
    return 0.5 * (low + high);
}

bool setCorners(SarParameterRecord& r, const RangeDoppler& model, double h)
{
    auto at = [&](double line, double pixel, double* latitude, double* longitude) {
        Vec3 p;
        if (!model.imageToGround(line, pixel, h, &p))
            return false;
        double height;
        ecefToGeodetic(p, latitude, longitude, &height, model.ellipsoid());
        return true;
    };
    const double last = r.numberOfRows - 1, right = r.numberOfColumns - 1;
    return at(0.5 * last, 0.5 * right, &r.sceneCenterLatitude, &r.sceneCenterLongitude) &&
           at(0, 0, &r.sceneTopLeftLatitude, &r.sceneTopLeftLongitude) &&
           at(0, right, &r.sceneTopRightLatitude, &r.sceneTopRightLongitude) &&
           at(last, 0, &r.sceneBottomLeftLatitude, &r.sceneBottomLeftLongitude) &&
           at(last, right, &r.sceneBottomRightLatitude, &r.sceneBottomRightLongitude);
}

bool cropRecord(SarParameterRecord& r, const RangeDoppler& model, int x0, int y0, int width, int height,
                double cornerHeight)
{
    const RadarGrid& g = model.grid();
    r.startTime = g.firstLineTime + y0 * g.lineTime;
    r.endTime = r.startTime + (height - 1) * g.lineTime;
    r.centerTime = 0.5 * (r.startTime + r.endTime);
    r.nearSlantRange = g.nearRange + x0 * g.rangeSpacing;
    r.centerSlantRange = r.nearSlantRange + (width / 2) * g.rangeSpacing;
    r.farSlantRange = r.nearSlantRange + (width - 1) * g.rangeSpacing;
    r.numberOfColumns = width;
    r.numberOfRows = height;
    RadarGrid cropped = g;
    cropped.firstLineTime = r.startTime;
    cropped.nearRange = r.nearSlantRange;
    if (g.squinted())
    {
        // The centroid polynomial counts range time from the near range: re-expand it about the new one.
        const double shift = 2.0 * (cropped.nearRange - g.nearRange) / kSpeedOfLight;
        const auto& c = g.doppler;
        cropped.doppler = {c[0] + shift * (c[1] + shift * (c[2] + shift * c[3])),
                           c[1] + shift * (2.0 * c[2] + 3.0 * shift * c[3]), c[2] + 3.0 * shift * c[3], c[3]};
        r.dopplerCentroidCoefficients = cropped.doppler;
    }
    cropped.width = width;
    cropped.height = height;
    const RangeDoppler croppedModel(model.orbit(), cropped, model.ellipsoid());
    return setCorners(r, croppedModel, cornerHeight);
}

} // namespace sargeo

// Fuzz target: product recognition from a name (the first line) and from the whole input read as a Landsat MTL
// (product and calibration factors), a SAFE manifest and a product metadata XML.
#include "fuzz_support.h"
#include "landsat_calibration.h"
#include "product_recognition.h"

#include <cmath>
#include <cstdint>

namespace
{

void checkRecord(const catalogue::ProductInfo& info)
{
    // Dates are normalised or absent; a cloud share is a percentage or "not stated".
    if (!info.acquisition.isEmpty() && catalogue::normaliseDateTime(info.acquisition) != info.acquisition)
        __builtin_trap();
    if (info.cloudPercent != -1.0 && !(info.cloudPercent >= 0.0 && info.cloudPercent <= 100.0))
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    const QString firstLine =
        QString::fromUtf8(bytes.left(bytes.indexOf('\n') < 0 ? bytes.size() : bytes.indexOf('\n')));
    checkRecord(catalogue::recogniseName(firstLine));
    checkRecord(catalogue::readLandsatMtl(bytes));
    const double spacing = catalogue::readSentinel1PixelSpacing(bytes);
    if (!(spacing == -1.0 || (spacing > 0.0 && spacing < 10000.0)))
        __builtin_trap();
    catalogue::LonLatRing ring;
    checkRecord(catalogue::readSafeManifest(bytes, &ring));
    for (const auto& vertex : ring)
        if (!(std::abs(vertex.first) <= 180.0 && std::abs(vertex.second) <= 90.0))
            __builtin_trap();
    checkRecord(catalogue::readMetadataXml(bytes));
    const catalogue::LandsatCalibration calibration = catalogue::readLandsatCalibration(bytes);
    for (const auto& band : calibration.bands)
        if (band.first < 0 || band.first > 99)
            __builtin_trap();
    const QString date = catalogue::normaliseDateTime(firstLine);
    if (!date.isEmpty() && catalogue::normaliseDateTime(date) != date)
        __builtin_trap();
    return 0;
}

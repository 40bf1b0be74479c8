// Reading a COSMO-SkyMed SLC product (HDF5): its swaths' "SBI" images and the attributes that fill the SAR
// parameter file.
#pragma once

#include "sar_parameter_file.h"

#include <hdf5.h>

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace sarimport
{

// An HDF5 identifier closed by the matching H5?close when it goes out of scope.
class Hdf5Handle
{
public:
    Hdf5Handle(hid_t id = -1, herr_t (*close)(hid_t) = nullptr) : m_id(id), m_close(close) {}
    Hdf5Handle(Hdf5Handle&& other) noexcept : m_id(other.m_id), m_close(other.m_close) { other.m_id = -1; }
    Hdf5Handle& operator=(Hdf5Handle&& other) noexcept;
    Hdf5Handle(const Hdf5Handle&) = delete;
    Hdf5Handle& operator=(const Hdf5Handle&) = delete;
    ~Hdf5Handle();
    hid_t id() const { return m_id; }
    bool valid() const { return m_id >= 0; }

private:
    hid_t m_id;
    herr_t (*m_close)(hid_t);
};

class CskProduct
{
public:
    // Opens the file read-only; throws AlgoError when it is not HDF5 or has no swath "S01" with "SBI".
    explicit CskProduct(const QString& path);

    // Swath groups holding an "SBI" image, in order: "S01", "S02", ...
    const QStringList& swaths() const { return m_swaths; }

    struct ImageShape
    {
        int lines = 0;
        int samples = 0;
        bool integerSamples = true; // 16-bit integer parts; otherwise floating point
    };
    ImageShape imageShape(const QString& swath) const;

    // Reads lines [line0, line0 + lines) of the swath's SBI as interleaved real/imaginary parts of memoryType
    // (H5T_NATIVE_SHORT, _INT, _FLOAT or _DOUBLE) into buffer, which holds lines * samples * 2 elements.
    void readLines(const QString& swath, int line0, int lines, hid_t memoryType, void* buffer) const;

    // The SAR parameter record of one swath image, times in seconds after midnight of the "Reference UTC" day.
    SarParameterRecord parameterRecord(const QString& swath) const;

private:
    std::vector<double> numbers(hid_t object, const char* name) const;
    double number(hid_t object, const char* name, const double* fallback = nullptr) const;
    QString text(hid_t object, const char* name) const;

    QString m_path;
    Hdf5Handle m_file;
    QStringList m_swaths;
};

} // namespace sarimport

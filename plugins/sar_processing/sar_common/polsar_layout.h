// The folder layout of polarimetric matrices (config.txt and one raw Float32 file per element): the matrix kinds,
// their element files, the config text and the inspection of a folder. Plain C++, shared by the entries and the
// plug-ins.
#pragma once

#include <string>
#include <vector>

namespace sar
{

// S2: the four complex channels s11 (HH), s12 (HV), s21 (VH), s22 (VV). C2: covariance of (HH, HV).
// C3/T3: covariance of (HH, sqrt2 HV, VV) and coherency of the Pauli vector (HH+VV, HH-VV, 2 HV)/sqrt2, with
// HV = (HV + VH)/2. C4/T4: covariance of (HH, HV, VH, VV) and coherency of (HH+VV, HH-VV, HV+VH, i(HV-VH))/sqrt2.
enum class PolMatrix
{
    S2,
    C2,
    C3,
    T3,
    C4,
    T4
};

const char* polMatrixName(PolMatrix kind);
// The kind named by text (case-sensitive); false when none is.
bool polMatrixFromName(const std::string& name, PolMatrix* kind);

// Side of the matrix (2, 3 or 4; S2 counts as its 4 x 4 covariance).
int matrixSide(PolMatrix kind);

// The element files in the order they are read and written, e.g. T3: T11.bin, T12_real.bin, T12_imag.bin, ...
// S2's files hold complex samples (two floats each); the others one float per pixel.
std::vector<std::string> elementFiles(PolMatrix kind);
// Floats per pixel over all element files (S2: 8).
int floatsPerPixel(PolMatrix kind);

// config.txt: alternating lines, a key (Nrow, Ncol, PolarCase, PolarType), its value, a separator line.
struct PolConfig
{
    int rows = 0;
    int cols = 0;
    std::string polarCase;  // "monostatic" or "bistatic"
    std::string polarType;  // "full", "pp1", ...
};
// Parses the text of config.txt; false when Nrow or Ncol is missing, not a number or not positive.
bool parsePolConfig(const std::string& text, PolConfig& config);
std::string formatPolConfig(const PolConfig& config);

// Whether `from` holds what `to` needs: S2 converts to everything; C4/T4 to C4, T4, C3, T3, C2; C3/T3 to C3, T3,
// C2; C2 to C2.
bool convertible(PolMatrix from, PolMatrix to);

// The matrix kind of a folder and its config: the first kind in the order S2, T4, C4, T3, C3, C2 whose element
// files are all there. An empty text on success, else what is wrong (no config.txt, a bad config, no complete
// set of element files, an element file shorter than Nrow x Ncol).
std::string inspectPolFolder(const std::string& dir, PolMatrix* kind, PolConfig* config);

// The TargetMatrix text of a conversion: a kind name, optionally followed by ":<azimuth>x<range>" looks to
// average (1 to 100 each; not for S2), e.g. "T3" or "T3:4x1". False when the text is not of this form.
bool parseTargetMatrix(const std::string& text, PolMatrix* kind, int* azimuthLooks, int* rangeLooks);

// The Basis text of a change of polarisation basis: "linear" (H, V), "circular" (orientation 0, ellipticity 45)
// or "<orientation>,<ellipticity>" in degrees (-90..90 and -45..45), optionally after "elliptical:". False when
// the text is none of these.
bool parsePolarisationBasis(const std::string& text, double* orientation, double* ellipticity);

} // namespace sar

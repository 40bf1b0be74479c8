// Polarimetric folder layout: kinds, element files, config text, inspection.
#include "polsar_layout.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace sar
{

namespace
{

char letter(PolMatrix kind)
{
    return kind == PolMatrix::T3 || kind == PolMatrix::T4 ? 'T' : 'C';
}

bool fourSided(PolMatrix kind)
{
    return kind == PolMatrix::S2 || kind == PolMatrix::C4 || kind == PolMatrix::T4;
}

} // namespace

const char* polMatrixName(PolMatrix kind)
{
    static const char* const kNames[] = {"S2", "C2", "C3", "T3", "C4", "T4"};
    return kNames[int(kind)];
}

bool polMatrixFromName(const std::string& name, PolMatrix* kind)
{
    for (int k = 0; k < 6; ++k)
        if (name == polMatrixName(PolMatrix(k)))
        {
            *kind = PolMatrix(k);
            return true;
        }
    return false;
}

int matrixSide(PolMatrix kind)
{
    switch (kind)
    {
    case PolMatrix::C2:
        return 2;
    case PolMatrix::C3:
    case PolMatrix::T3:
        return 3;
    default:
        return 4;
    }
}

std::vector<std::string> elementFiles(PolMatrix kind)
{
    if (kind == PolMatrix::S2)
        return {"s11.bin", "s12.bin", "s21.bin", "s22.bin"};
    std::vector<std::string> files;
    const int n = matrixSide(kind);
    const std::string x(1, letter(kind));
    for (int i = 1; i <= n; ++i)
        for (int j = i; j <= n; ++j)
        {
            const std::string ij = x + std::to_string(i) + std::to_string(j);
            if (i == j)
                files.push_back(ij + ".bin");
            else
            {
                files.push_back(ij + "_real.bin");
                files.push_back(ij + "_imag.bin");
            }
        }
    return files;
}

int floatsPerPixel(PolMatrix kind)
{
    return kind == PolMatrix::S2 ? 8 : matrixSide(kind) * matrixSide(kind);
}

bool parsePolConfig(const std::string& text, PolConfig& config)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line) && lines.size() < 10000)
    {
        const size_t begin = line.find_first_not_of(" \t\r");
        const size_t end = line.find_last_not_of(" \t\r");
        lines.push_back(begin == std::string::npos ? std::string() : line.substr(begin, end - begin + 1));
    }
    config = PolConfig();
    auto positive = [](const std::string& value, int* out) {
        if (value.empty() || value.size() > 9 || value.find_first_not_of("0123456789") != std::string::npos)
            return false;
        *out = std::atoi(value.c_str());
        return *out > 0;
    };
    bool rows = false, cols = false;
    // A key's line is followed by its value's line; a value is never read as a key (a PolarCase of "Ncol" stays
    // a value).
    for (size_t i = 0; i + 1 < lines.size(); ++i)
    {
        if (lines[i] == "Nrow")
            rows = positive(lines[++i], &config.rows);
        else if (lines[i] == "Ncol")
            cols = positive(lines[++i], &config.cols);
        else if (lines[i] == "PolarCase")
            config.polarCase = lines[++i];
        else if (lines[i] == "PolarType")
            config.polarType = lines[++i];
    }
    return rows && cols;
}

std::string formatPolConfig(const PolConfig& config)
{
    std::ostringstream out;
    out << "Nrow\n" << config.rows << "\n---------\nNcol\n" << config.cols << "\n---------\nPolarCase\n"
        << (config.polarCase.empty() ? "monostatic" : config.polarCase) << "\n---------\nPolarType\n"
        << (config.polarType.empty() ? "full" : config.polarType) << "\n";
    return out.str();
}

bool convertible(PolMatrix from, PolMatrix to)
{
    if (to == PolMatrix::S2)
        return from == PolMatrix::S2;
    if (from == PolMatrix::C2)
        return to == PolMatrix::C2;
    if (fourSided(to))
        return fourSided(from);
    return true;
}

bool parseTargetMatrix(const std::string& text, PolMatrix* kind, int* azimuthLooks, int* rangeLooks)
{
    const size_t colon = text.find(':');
    if (!polMatrixFromName(text.substr(0, colon), kind))
        return false;
    *azimuthLooks = *rangeLooks = 1;
    if (colon == std::string::npos)
        return true;
    const std::string looks = text.substr(colon + 1);
    const size_t cross = looks.find('x');
    const auto number = [](const std::string& digits, int* out) {
        if (digits.empty() || digits.size() > 3 || digits.find_first_not_of("0123456789") != std::string::npos)
            return false;
        *out = std::atoi(digits.c_str());
        return *out >= 1 && *out <= 100;
    };
    return cross != std::string::npos && number(looks.substr(0, cross), azimuthLooks) &&
           number(looks.substr(cross + 1), rangeLooks) && *kind != PolMatrix::S2;
}

bool parsePolarisationBasis(const std::string& text, double* orientation, double* ellipticity)
{
    std::string t = text;
    t.erase(0, t.find_first_not_of(" \t"));
    t.erase(t.find_last_not_of(" \t") + 1);
    if (t == "linear" || t == "circular")
    {
        *orientation = 0.0;
        *ellipticity = t == "circular" ? 45.0 : 0.0;
        return true;
    }
    if (t.rfind("elliptical:", 0) == 0)
        t = t.substr(11);
    const size_t comma = t.find(',');
    if (comma == std::string::npos || t.size() > 64)
        return false;
    char* end = nullptr;
    const std::string first = t.substr(0, comma), second = t.substr(comma + 1);
    const double psi = std::strtod(first.c_str(), &end);
    if (end == first.c_str() || std::string(end).find_first_not_of(" \t") != std::string::npos)
        return false;
    const double chi = std::strtod(second.c_str(), &end);
    if (end == second.c_str() || std::string(end).find_first_not_of(" \t") != std::string::npos)
        return false;
    if (!(psi >= -90.0 && psi <= 90.0 && chi >= -45.0 && chi <= 45.0))
        return false;
    *orientation = psi;
    *ellipticity = chi;
    return true;
}

std::string inspectPolFolder(const std::string& dir, PolMatrix* kind, PolConfig* config)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path folder(dir);
    if (!fs::is_directory(folder, error) || !fs::is_regular_file(folder / "config.txt", error))
        return "has no config.txt";
    std::ifstream file(folder / "config.txt", std::ios::binary);
    std::string text(1 << 20, '\0');
    file.read(&text[0], std::streamsize(text.size()));
    text.resize(size_t(file.gcount()));
    if (!parsePolConfig(text, *config))
        return "has a config.txt without positive Nrow and Ncol";
    for (PolMatrix candidate : {PolMatrix::S2, PolMatrix::T4, PolMatrix::C4, PolMatrix::T3, PolMatrix::C3, PolMatrix::C2})
    {
        const std::vector<std::string> names = elementFiles(candidate);
        bool complete = true;
        for (const std::string& name : names)
            complete = complete && fs::is_regular_file(folder / name, error);
        if (!complete)
            continue;
        const unsigned long long bytes = (unsigned long long)config->rows * config->cols * 4 * (candidate == PolMatrix::S2 ? 2 : 1);
        for (const std::string& name : names)
            if (fs::file_size(folder / name, error) < bytes || error)
                return "has " + name + " shorter than Nrow x Ncol samples";
        *kind = candidate;
        return std::string();
    }
    return "holds no complete S2, C2, C3, T3, C4 or T4 element files";
}

} // namespace sar

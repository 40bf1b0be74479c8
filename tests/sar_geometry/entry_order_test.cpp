// Radar entries: a refusal is one "[ERROR] " line, and checks that need no product reading come before
// "Judge the rationality of input paramenters sucessfully"; a product the plug-in refuses comes after it.
#include "AlgoFactory.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>

using testsupport::StdoutCapture;

namespace
{

void writeText(const QString& path, const QString& text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

QString parameterFileWith(int stateVectors)
{
    QString orbit;
    for (int i = 1; i <= stateVectors; ++i)
        orbit += QString("<stateVector num=\"%1\"><timeStamp>%1</timeStamp></stateVector>").arg(i);
    return "<?xml version=\"1.0\"?><vyrSARParameter><productInfo><sceneCoord/></productInfo><orbitInfo>" + orbit +
           "</orbitInfo></vyrSARParameter>\n";
}

struct Row
{
    const char* what;
    std::function<bool(const char*)> call; // the argument is a temporary folder
    std::string message;                    // expected text of the [ERROR] line, with "%1" for the folder
    bool afterJudge;                        // refused by the plug-in, after the checks passed
};

} // namespace

TEST(RadarEntries, EachRefusalIsOneErrorLineInItsPlaceAroundTheJudgeLine)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    writeText(d + "/plain.txt", "not a product\n");
    writeText(d + "/image.tif", "not read by the entry\n");
    writeText(d + "/image.xml", parameterFileWith(4));
    writeText(d + "/short.xml", parameterFileWith(2));
    writeText(d + "/orphan.tif", "no parameter file beside it\n");
    writeText(d + "/corners.meta.xml", "<product><imageinfo/></product>\n");
    QDir(d).mkdir("folder");

    using S = std::string;
    auto p = [](const char* folder, const char* name) { return S(folder) + "/" + name; };
    const std::vector<Row> rows = {
        {"S1 empty input", [](const char* f) { return ExcuteAlgo_S1_TOPS_SLCDataImport("", f, "", "", nullptr); },
         "S1_TOPS_SLCDataImport: the parameter InputFile is empty!", false},
        {"S1 missing input",
         [&](const char* f) { return ExcuteAlgo_S1_TOPS_SLCDataImport(p(f, "none.SAFE").c_str(), f, "", "", nullptr); },
         "S1_TOPS_SLCDataImport: the parameter InputFile (%1/none.SAFE) does not exist!", false},
        {"S1 output dir is a file",
         [&](const char* f) { return ExcuteAlgo_S1_TOPS_SLCDataImport(f, p(f, "plain.txt").c_str(), "", "", nullptr); },
         "S1_TOPS_SLCDataImport: the parameter OutputDir (%1/plain.txt) cannot be created!", false},
        {"S1 unknown swath",
         [&](const char* f) { return ExcuteAlgo_S1_TOPS_SLCDataImport(f, p(f, "out").c_str(), "iw1|IW4", "", nullptr); },
         "S1_TOPS_SLCDataImport: the parameter Swath (iw1|IW4) must be one of IW1, IW2, IW3, EW1, EW2, EW3, EW4, EW5!", false},
        {"S1 unknown polarisation",
         [&](const char* f) { return ExcuteAlgo_S1_TOPS_SLCDataImport(f, p(f, "out").c_str(), "", "HH|XX", nullptr); },
         "S1_TOPS_SLCDataImport: the parameter Polarization (HH|XX) must be one of HH, HV, VH, VV!", false},
        {"S1 folder that is no product",
         [&](const char* f) { return ExcuteAlgo_S1_TOPS_SLCDataImport(p(f, "folder").c_str(), p(f, "out").c_str(), "", "", nullptr); },
         "S1_TOPS_SLCDataImport: the parameter InputFile (%1/folder)", true},
        {"PALSAR-1 missing folder",
         [&](const char* f) { return ExcuteAlgo_PALSAR1_SLCDataImport(p(f, "none").c_str(), f, nullptr); },
         "PALSAR1_SLCDataImport: the parameter InputDir (%1/none) does not exist!", false},
        {"PALSAR-2 empty output", [](const char* f) { return ExcuteAlgo_PALSAR2_SLCDataImport(f, "", nullptr); },
         "PALSAR2_SLCDataImport: the parameter OutputDir is empty!", false},
        {"PALSAR-2 folder that is no product",
         [&](const char* f) { return ExcuteAlgo_PALSAR2_SLCDataImport(p(f, "folder").c_str(), p(f, "out").c_str(), nullptr); },
         "PALSAR2_SLCDataImport: the parameter InputDir (%1/folder) holds no LED- leader or no IMG- image file!", true},
        {"TSX xml is a folder",
         [&](const char* f) { return ExcuteAlgo_InSAR_TSX_SLCImport(f, p(f, "o.tif").c_str(), nullptr); },
         "InSAR_TSX_SLCImport: the parameter XmlFile (%1) is not an existing file!", false},
        {"crop output is a folder",
         [&](const char* f) { return ExcuteAlgo_InSAR_SingleImageCrop(p(f, "image.tif").c_str(), f, "", nullptr); },
         "InSAR_SingleImageCrop: the parameter OutputFile (%1) is a folder, not a file!", false},
        {"crop region of three numbers",
         [&](const char* f) { return ExcuteAlgo_InSAR_SingleImageCrop(p(f, "image.tif").c_str(), p(f, "o.tif").c_str(), "1|2|3", nullptr); },
         "InSAR_SingleImageCrop: the parameter Region (1|2|3) is not x0|x1|y0|y1 or west|east|south|north!", false},
        {"crop region with a word",
         [&](const char* f) { return ExcuteAlgo_InSAR_SingleImageCrop(p(f, "image.tif").c_str(), p(f, "o.tif").c_str(), "1|2|3|x", nullptr); },
         "InSAR_SingleImageCrop: the parameter Region (1|2|3|x) is not x0|x1|y0|y1 or west|east|south|north!", false},
        {"ground range, two state vectors",
         [&](const char* f) { return ExcuteAlgo_InSAR_Slant2Ground(p(f, "image.tif").c_str(), p(f, "short.xml").c_str(), p(f, "g.tif").c_str(), nullptr); },
         "InSAR_Slant2Ground: the parameter ParameterFile (%1/short.xml) holds 2 state vectors, fewer than 4!", false},
        {"RPC, parameter file not XML",
         [&](const char* f) { return ExcuteAlgo_RD_GenerateRPC(p(f, "image.tif").c_str(), p(f, "plain.txt").c_str(), p(f, "o.rpc").c_str(), nullptr); },
         "RD_GenerateRPC: the parameter ParameterFile (%1/plain.txt) is not a readable SAR parameter file!", false},
        {"RPC, missing parameter file",
         [&](const char* f) { return ExcuteAlgo_RD_GenerateRPC(p(f, "image.tif").c_str(), p(f, "none.xml").c_str(), p(f, "o.rpc").c_str(), nullptr); },
         "RD_GenerateRPC: the parameter ParameterFile (%1/none.xml) does not exist!", false},
        {"RPC, image GDAL cannot open",
         [&](const char* f) { return ExcuteAlgo_RD_GenerateRPC(p(f, "image.tif").c_str(), p(f, "image.xml").c_str(), p(f, "o.rpc").c_str(), nullptr); },
         "RD_GenerateRPC: the parameter", true},
        {"footprint to a .tif",
         [&](const char* f) { return ExcuteAlgo_GF3_ContourShp(p(f, "corners.meta.xml").c_str(), p(f, "f.tif").c_str(), nullptr); },
         "GF3_ContourShp: the parameter OutputFile (%1/f.tif) must end in .shp!", false},
        {"footprint of a meta.xml without corners",
         [&](const char* f) { return ExcuteAlgo_GF3_ContourShp(p(f, "corners.meta.xml").c_str(), p(f, "f.shp").c_str(), nullptr); },
         "GF3_ContourShp: the parameter MetaXmlFile (%1/corners.meta.xml) has no usable imageinfo.corner.topLeft latitude and longitude!", true},
        {"geocoding, second input missing",
         [&](const char* f) { return ExcuteAlgo_Batch_SARGeocode((p(f, "image.tif") + "|" + p(f, "gone.tif")).c_str(), p(f, "image.tif").c_str(), f, 30, nullptr); },
         "Batch_SARGeocode: the parameter InputFiles (%1/gone.tif) does not exist!", false},
        {"geocoding, input without parameter file",
         [&](const char* f) { return ExcuteAlgo_Batch_SARGeocode(p(f, "orphan.tif").c_str(), p(f, "image.tif").c_str(), f, 30, nullptr); },
         "Batch_SARGeocode: the parameter InputFiles (%1/orphan.tif) has a SAR parameter file %1/orphan.xml that does not exist!", false},
        {"geocoding, zero resolution",
         [&](const char* f) { return ExcuteAlgo_Batch_SARGeocode(p(f, "image.tif").c_str(), p(f, "image.tif").c_str(), f, 0, nullptr); },
         "Batch_SARGeocode: the parameter Resolution (0) must be greater than 0!", false},
        {"GRD, empty inputs", [](const char* f) { return ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection("|", "", f, 20, nullptr); },
         "Batch_S1_GRD_FastOrthoCorrection: the parameter InputFiles is empty!", false},
        {"GRD, missing DEM",
         [&](const char* f) { return ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(f, p(f, "dem.tif").c_str(), f, 20, nullptr); },
         "Batch_S1_GRD_FastOrthoCorrection: the parameter DEMFile (%1/dem.tif) is not an existing file!", false},
        {"GRD, resolution too coarse",
         [&](const char* f) { return ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(f, "", f, 20000, nullptr); },
         "Batch_S1_GRD_FastOrthoCorrection: the parameter Resolution (20000) must be at most 10000!", false},
        {"terrain flattening, empty DEM",
         [&](const char* f) { return ExcuteAlgo_TerrainRadiometricCorrection(p(f, "image.tif").c_str(), "", p(f, "g.tif").c_str(), nullptr); },
         "TerrainRadiometricCorrection: the parameter DEMFile is empty!", false},
        {"terrain flattening, image without parameter file",
         [&](const char* f) { return ExcuteAlgo_TerrainRadiometricCorrection(p(f, "orphan.tif").c_str(), p(f, "image.tif").c_str(), p(f, "g.tif").c_str(), nullptr); },
         "TerrainRadiometricCorrection: the parameter InputFile (%1/orphan.tif) has a SAR parameter file %1/orphan.xml that does not exist!", false},
    };
    const std::string folder = QDir(d).absolutePath().toStdString();
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        std::string expected = row.message;
        for (size_t at; (at = expected.find("%1")) != std::string::npos;)
            expected.replace(at, 2, folder);
        StdoutCapture capture;
        EXPECT_FALSE(row.call(folder.c_str()));
        const std::vector<std::string> printed = testsupport::lines(capture.text());
        int errors = 0, errorAt = -1, judgeAt = -1;
        for (int i = 0; i < int(printed.size()); ++i)
        {
            if (printed[i].rfind("[ERROR] ", 0) == 0)
                ++errors, errorAt = i;
            if (printed[i] == "Judge the rationality of input paramenters sucessfully")
                judgeAt = i;
        }
        ASSERT_EQ(errors, 1) << capture.text();
        EXPECT_EQ(printed[errorAt].rfind("[ERROR] " + expected, 0), 0u) << printed[errorAt];
        if (row.afterJudge)
            EXPECT_TRUE(judgeAt >= 0 && judgeAt < errorAt) << capture.text();
        else
            EXPECT_EQ(judgeAt, -1) << capture.text();
    }
    EXPECT_FALSE(QFile::exists(d + "/out"));
    EXPECT_FALSE(QFile::exists(d + "/f.shp"));
    EXPECT_FALSE(QFile::exists(d + "/o.rpc"));
}

TEST(RadarEntries, AnEntryRefusalFillsTheCallersRecord)
{
    testsupport::RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_GF3_ContourShp("/nonexistent/a.meta.xml", "/tmp/f.shp", &result.record));
    EXPECT_STREQ(result.record.message,
                 "GF3_ContourShp: the parameter MetaXmlFile (/nonexistent/a.meta.xml) is not an existing file!");
    EXPECT_NE(result.record.code, 0);
}

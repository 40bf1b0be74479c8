// Parameter records of the classification plug-ins (unsupervised, supervised, post-classification),
// fields in the order the entries fill them.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <QStringList>
#include <cstdint>
#include <vector>

#pragma GCC visibility push(default)

// ISODATA ("ISODataClassification").
struct stInfoClassificationISO
{
    QString inputFile;
    QString outputFile;
    int expectedClasses = 0;
    int initialClasses = 0;
    int minClassSize = 0;      // pixels; smaller classes are dissolved
    int maxMergePairs = 0;     // pairs merged per iteration
    int maxIterations = 0;
    double maxStdDev = 0.0;    // a class whose largest band deviation exceeds this is split
    double minDistance = 0.0;  // centres closer than this are merged
    std::vector<int> bands;    // 0-based band indices, as the caller wrote them
    QString reserved1;
    std::int64_t reserved2 = 0;
    QString reserved3;
};

// K-means ("KmeansClassification").
struct stInfoClassificationKmeans
{
    QString inputFile;
    QString outputFile;
    int expectedClasses = 0;
    int maxIterations = 0;     // the entry's fifth argument; 0 or less: 20
    double threshold = 0.0;    // stop when the fraction of pixels changing class is at most this
    std::vector<int> bands;    // 0-based band indices
    std::int64_t reserved1 = 0;
    QString title;
    std::int64_t reserved2 = 0;
};

// Neural-network clustering ("NeuralNetworkCluster"): a Kohonen map, or plain competitive learning.
struct NETWORKCLASS
{
    QString inputFile;
    std::vector<int> bands;    // 0-based band indices
    QString outputFile;
    int networkType = 0;       // 0: self-organising map (1-D chain of nodes), 1: competitive learning (winner only)
    int classCount = 0;
    float learningRate = 0.f;  // initial learning rate in (0, 1]; 0 or less: 0.5
    float radius = 0.f;        // initial neighbourhood radius in nodes; 0 or less: classCount / 2
    int epochs = 0;            // passes over the training sample; 0 or less: 10
    QString format;            // GDAL driver of the output
    std::int64_t reserved1 = 0;
    QString reserved2;
    std::int64_t reserved3 = 0;
};

// One training class as the supervised plug-ins see it.
struct RoiClassInfo
{
    QString name;
    int red = 0;
    int green = 0;
    int blue = 0;
};

// Minimum distance and maximum likelihood ("DistanceClassification", "MLClassification"). The entry hands
// the plug-in a pointer to its own record (AlgoParamHolder holding stSupervisedClassificationInfo*).
struct stSupervisedClassificationInfo
{
    QString inputFile;
    QString outputFile;
    int firstRow = 0;
    int lastRow = 0;
    int firstColumn = 0;
    int lastColumn = 0;
    std::vector<int> bands;       // 1-based band numbers
    int bandCount = 0;
    int option = 0;               // distance only: 1 selects Mahalanobis distance, anything else Euclidean
    int classCount = 0;
    std::vector<double> means;    // classCount x bandCount
    std::vector<double> covariances; // classCount x bandCount x bandCount, row after row
    std::vector<RoiClassInfo> classes;
};

// Clump and sieve ("ImgClassPostClump", "ImgClassPostSieve").
// Clump: pair = (kernel rows, kernel columns). Sieve: pair = (neighbourhood 4 or 8, size threshold in pixels).
struct stClassPostclump
{
    QString inputFile;
    QString outputFile;
    std::vector<int> classes;     // 0-based class values to process
    std::vector<int> pair;
    QString reserved1;
    QString reserved2;
};

// Majority/minority analysis ("ImgClassPostMMA").
struct stClassPostMMA
{
    QString inputFile;
    QString outputFile;
    std::vector<int> classes;     // 0-based class values taking part in the vote
    std::vector<int> reserved1;
    int minority = 0;             // 1: minority analysis, 0: majority analysis
    int kernelRows = 0;
    int kernelColumns = 0;
    int centreWeight = 1;         // votes of the centre pixel
    std::vector<int> reserved2;
    QString reserved3;
};

// Class combination ("ImgClassPostComb"). Recoding numbers are 1-based class numbers.
struct stClassPostCombInfo
{
    QString inputFile;
    QString outputFile;
    int classCount = 0;
    QStringList classNames;
    std::vector<int> red;         // colour-table entries, parallel to classNames
    std::vector<int> green;
    std::vector<int> blue;
    std::vector<int> sourceClasses;
    std::vector<int> targetClasses;
};

#pragma GCC visibility pop

// A host without a Qt application object: the executable's folder stands in for the application folder.
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

using namespace testsupport;

TEST(WithoutApplication, PluginsAndDescriptionsAreStillFound)
{
    ASSERT_EQ(QCoreApplication::instance(), nullptr);
    QTemporaryDir dir;
    const QString previous = QDir::currentPath();
    QDir::setCurrent(dir.path());
    StdoutCapture capture;
    const bool ok = ExcuteAlgo("ThresholdSplit", R"({"InputFile":"in.tif","Band":2,"OutputFile":"o.tif"})", nullptr);
    const std::string printed = capture.text();
    QFile log(dir.filePath("AlgoFactor_log.txt"));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QString logText = QString::fromLocal8Bit(log.readAll());
    QDir::setCurrent(previous);

    // The real plug-in runs (and refuses the missing input); what matters here is where the library looked.
    EXPECT_FALSE(ok) << printed;
    EXPECT_NE(printed.find("start call algorithm plugin: ThresholdSplit\n"), std::string::npos) << printed;
    const QString testsDir = QDir(buildBinDir() + "/../tests").canonicalPath();
    EXPECT_TRUE(logText.contains(" Current Path:" + testsDir + "\n")) << logText.toStdString();
    EXPECT_TRUE(logText.contains(" metadata Path:" + testsDir + "/../Model/abd\n")) << logText.toStdString();
}

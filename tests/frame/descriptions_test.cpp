// The descriptions under Model/abd against the exported entries and their signatures.
#include "AlgoFactoryHost.h"
#include "plugin_metadata.h"
#include "test_support.h"

#include <dlfcn.h>

using namespace testsupport;

namespace
{

const Plugin::Metadata* descriptions()
{
    return Plugin::Metadata::Instance(buildBinDir() + "/../Model/abd");
}

} // namespace

TEST(Descriptions, AllParseAndCoverTheDispatchTable)
{
    const Plugin::Metadata* metadata = descriptions();
    EXPECT_TRUE(metadata->Problems().isEmpty()) << metadata->Problems().join("\n").toStdString();
    int json = 0, jsonText = 0;
    for (const QString& name : metadata->AlgorithmNames())
    {
        const QString route = metadata->Find(name)->route;
        json += route == "json";
        jsonText += route == "json-text";
    }
    EXPECT_EQ(json, 89) << "the dispatch table's names, the repeated MNFTransform once";
    EXPECT_EQ(jsonText, 8);
    const QStringList bandCompute = {"CalculationExp", "Images", "Bands", "OutputFile", "dataType"};
    for (int i = 0; i < bandCompute.size(); ++i)
        EXPECT_EQ(metadata->GetParamNameFromIndex("BandCompute", i), bandCompute[i]);
    EXPECT_EQ(metadata->GetParamNameFromIndex("BandCompute", 5), QString());
    EXPECT_EQ(metadata->GetParamNameFromIndex("NoSuchAlgorithm", 0), QString());
}

TEST(Descriptions, EveryEntryIsExportedAndItsKindsMatchTheDescription)
{
    void* library = dlopen((buildBinDir() + "/libAlgoFactory.so").toLocal8Bit().constData(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    const Plugin::Metadata* metadata = descriptions();
    for (const QString& name : metadata->AlgorithmNames())
    {
        const Plugin::AlgoDescription* d = metadata->Find(name);
        const QByteArray entry = d->entry.toLatin1();
        EXPECT_NE(dlsym(library, entry.constData()), nullptr) << entry.constData() << " is not exported";
        const char* kinds = AlgoFactory_EntryKinds(entry.constData());
        ASSERT_NE(kinds, nullptr) << entry.constData();
        if (d->route == "json-text")
        {
            EXPECT_STREQ(kinds, "json");
            continue;
        }
        const QStringList entryKinds = QString::fromLatin1(kinds).split(',', Qt::SkipEmptyParts);
        EXPECT_GE(d->params.size(), entryKinds.size()) << name.toStdString();
        if (d->params.size() < entryKinds.size())
            continue;
        if (d->route == "direct")
            EXPECT_EQ(d->params.size(), entryKinds.size()) << name.toStdString();
        for (int i = 0; i < entryKinds.size(); ++i)
            EXPECT_EQ(d->params[i].kind, entryKinds[i]) << name.toStdString() << " parameter " << i;
    }
    dlclose(library);
}

TEST(Descriptions, CallEntryChecksTheArgumentCount)
{
    StdoutCapture capture;
    const char* args[] = {"only one"};
    EXPECT_FALSE(AlgoFactory_CallEntry("ExcuteAlgo_UtilityFormTran", 1, args, nullptr));
    EXPECT_FALSE(AlgoFactory_CallEntry("ExcuteAlgo_NoSuchEntry", 1, args, nullptr));
    EXPECT_EQ(capture.text(), "[ERROR] ExcuteAlgo_UtilityFormTran takes 3 arguments (text, text, long), 1 given\n"
                              "[ERROR] No entry named ExcuteAlgo_NoSuchEntry\n");
}

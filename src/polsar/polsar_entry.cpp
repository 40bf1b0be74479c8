// Checks shared by the polarimetric entries.
#include "polsar_entry.h"

#include "output_protocol.h"

#include <iostream>

namespace algofactory::polsar
{

QString utf8Arg(const char* text)
{
    return text ? QString::fromStdString(std::string(text)) : QString();
}

bool refuse(const QString& message)
{
    printError(message);
    return false;
}

bool checkNotEmpty(std::initializer_list<RequiredText> texts)
{
    for (const RequiredText& text : texts)
        if (text.value.isEmpty())
            return refuse(QString::fromLatin1(text.emptyMessage));
    return true;
}

bool openRasters(std::initializer_list<RasterInput> inputs, std::vector<RasterPtr>& datasets)
{
    datasets.clear();
    for (const RasterInput& input : inputs)
    {
        RasterPtr dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(input.path);
        if (!dataset)
            return refuse(QString::fromLatin1(input.openMessage));
        datasets.push_back(dataset);
    }
    return true;
}

bool allSingleBand(const std::vector<RasterPtr>& datasets, bool (*typeOk)(int dataType))
{
    for (const RasterPtr& dataset : datasets)
        if (dataset->GetBandCount() != 1 || !typeOk(dataset->GetBand(0)->GetDataType()))
            return false;
    return true;
}

bool allSameSize(const std::vector<RasterPtr>& datasets)
{
    for (const RasterPtr& dataset : datasets)
        if (dataset->GetWidth() != datasets.front()->GetWidth() ||
            dataset->GetHeight() != datasets.front()->GetHeight())
            return false;
    return true;
}

int wordIndex(const QString& word, const QStringList& words)
{
    return words.indexOf(word);
}

void printChecksPassed()
{
    std::cout << "Judge the rationality of input paramenters sucessfully" << std::endl;
}

} // namespace algofactory::polsar

// Parameter access by index and conversion by kind; an empty or unparsable number gives 0.
#include "param_reader.h"

#include "plugin_metadata.h"

#include <iostream>

namespace algofactory
{

ParamReader::ParamReader(const QJsonObject& object, const Plugin::Metadata* metadata, const QString& algoName, RunLog* log,
                         RowTrace trace)
    : m_source([object, metadata, algoName](int index) {
          const QString key = metadata ? metadata->GetParamNameFromIndex(algoName, index) : QString();
          return Plugin::GetParamValue(object, QStringList{key});
      }),
      m_log(log), m_trace(trace)
{
}

ParamReader::ParamReader(const QStringList& values) : m_source([values](int index) { return values.value(index); }) {}

template <> const char* ParamReader::get<const char*>(int index)
{
    const QString text = value(index);
    m_texts.push_back(text.toLocal8Bit());
    trace(index, text);
    return m_texts.back().constData();
}

template <> int ParamReader::get<int>(int index)
{
    const int number = value(index).toInt();
    trace(index, QString::number(number));
    return number;
}

template <> long ParamReader::get<long>(int index)
{
    const long number = value(index).toLong();
    trace(index, QString::number(number));
    return number;
}

template <> float ParamReader::get<float>(int index)
{
    const float number = value(index).toFloat();
    trace(index, QString::number(number));
    return number;
}

template <> double ParamReader::get<double>(int index)
{
    const double number = value(index).toDouble();
    trace(index, QString::number(number, 'g', 17));
    return number;
}

void ParamReader::trace(int index, const QString& shown)
{
    switch (m_trace)
    {
    case RowTrace::BandCompute:
    {
        static const char* const labels[] = {"CalculationExp:", "Images:", "Bands:", "OutputFile:", "dataType:"};
        if (index >= 0 && index < 5 && m_log)
            m_log->write(QLatin1String(labels[index]), shown);
        break;
    }
    case RowTrace::MetaData:
    case RowTrace::MetaDataPaInv:
    {
        const bool paInv = m_trace == RowTrace::MetaDataPaInv;
        const char* label = index == 0   ? (paInv ? "InputFilePath:" : "Inputfile path in Algofactory: ")
                            : index == 1 ? (paInv ? "InputFilePath:" : "Inputxmlfile path in Algofactory: ")
                                         : "OtherKey path in Algofactory: ";
        if (index < 4)
            std::cout << label << shown.toLocal8Bit().constData() << std::endl;
        break;
    }
    case RowTrace::None:
        break;
    }
}

} // namespace algofactory

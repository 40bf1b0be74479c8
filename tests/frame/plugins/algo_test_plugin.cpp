// A plug-in for the frame tests: succeeds, fails, throws, echoes its record, writes a raster.
#include "plugin_base.h"
#include "raster_io.h"
#include "records/generic_record.h"
#include "test_records.h"

#include <iostream>
#include <stdexcept>

namespace
{

class AlgoTestPlugin : public algokit::PluginBase
{
public:
    AlgoTestPlugin() : PluginBase(QStringLiteral("AlgoTestPlugin")) {}

protected:
    bool run() override
    {
        if (holdsParams(typeid(GenericAlgoRecord)))
            return echoGeneric(params<GenericAlgoRecord>());
        const TestEchoRecord& record = params<TestEchoRecord>();
        if (record.mode == "succeed")
        {
            for (int step = 0; step <= 4; ++step)
                progress(step * 25.0, QStringLiteral("step %1").arg(step));
            setResult(record);
            return true;
        }
        if (record.mode == "echo")
        {
            setResult(record);
            return true;
        }
        if (record.mode == "empty-result")
            return true;
        if (record.mode == "fail-silent")
            return false;
        if (record.mode == "fail-with-error")
            return fail(record.text, record.number);
        if (record.mode == "throw")
            throw std::runtime_error("thrown on purpose");
        if (record.mode == "long-message")
            return fail(QString(record.number, QChar(0x00E9)), 9); // two UTF-8 bytes per character
        if (record.mode == "write-raster")
            return writeRaster(record.text, record.number);
        return fail(QStringLiteral("unknown mode ") + record.mode);
    }

    void discardOutputs() override { m_output = algokit::OutputRaster(); }

private:
    bool echoGeneric(const GenericAlgoRecord& record)
    {
        std::cout << "echo algoName=" << record.algoName.toStdString() << std::endl;
        for (const QString& key : record.keys)
        {
            const QVariant value = record.args.value(key);
            std::cout << "echo " << key.toStdString() << "=" << value.typeName() << ":" << value.toString().toStdString()
                      << std::endl;
        }
        GenericAlgoResult result;
        result.outputKeys << QStringLiteral("echoed");
        result.outputValues << record.algoName;
        setResult(result);
        return true;
    }

    bool writeRaster(const QString& path, int rows)
    {
        m_output = algokit::OutputRaster(path, QStringLiteral("GTiff"), 16, rows, 1, GDT_Byte);
        std::vector<unsigned char> row(16, 7);
        for (int y = 0; y < rows; ++y)
        {
            algokit::writeRows(m_output.band(0), y, 1, row);
            progress(100.0 * (y + 1) / rows);
        }
        m_output.commit();
        return true;
    }

    algokit::OutputRaster m_output;
};

} // namespace

ALGO_PLUGIN_FACTORY(AlgoTestPlugin)

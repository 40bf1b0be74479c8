// Plug-in "PALSAR1_SLCDataImport": an ALOS PALSAR CEOS product (level 1.1 complex, level 1.5 detected) to one
// GeoTIFF and SAR parameter file per polarisation.
#include "palsar_import.h"
#include "plugin_base.h"

namespace
{

class Palsar1Import : public algokit::PluginBase
{
public:
    Palsar1Import() : PluginBase(QStringLiteral("PALSAR1_SLCDataImport")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QStringList written = sargeo::importPalsar(
            args, QStringLiteral("ALOS"), [this](double p) { progress(p); },
            [this](const QString& path) { claimOutput(path); });
        setResult(algokit::GenericOutputs().add("PALSAR1_SLCDataImport_images", written.join('|')).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(Palsar1Import)

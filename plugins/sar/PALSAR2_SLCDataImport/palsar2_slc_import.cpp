// Plug-in "PALSAR2_SLCDataImport": an ALOS-2 PALSAR-2 CEOS product (level 1.1 complex, level 1.5 detected) to one
// GeoTIFF and SAR parameter file per polarisation.
#include "palsar_import.h"
#include "plugin_base.h"

namespace
{

class Palsar2Import : public algokit::PluginBase
{
public:
    Palsar2Import() : PluginBase(QStringLiteral("PALSAR2_SLCDataImport")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QStringList written = sargeo::importPalsar(
            args, QStringLiteral("ALOS2"), [this](double p) { progress(p); },
            [this](const QString& path) { claimOutput(path); });
        setResult(algokit::GenericOutputs().add("PALSAR2_SLCDataImport_images", written.join('|')).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(Palsar2Import)

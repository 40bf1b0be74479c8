// Plug-in "ImgProFiltFrequency": low- and high-pass filters in the frequency domain. D is the distance of a
// spectrum sample from the zero frequency in samples, D0 the cut-off, D1 the segmentation point.
//   kind 0 ideal:        low 1 where D <= D0, else 0
//   kind 1 Butterworth:  low 1 / (1 + (D / D0)^4)   (order 2)
//   kind 2 Gaussian:     low exp(-D^2 / (2 D0^2))
//   kind 3 trapezoid:    low 1 up to D0, linear down to 0 at D1 (D0 < D1);
//                        high 0 up to D1, linear up to 1 at D0 (D1 < D0)
// Pass flag 0 low-pass, 1 high-pass (1 - low for kinds 0-2).
#include "../ImgProFiltCommon/frequency_filter.h"

namespace
{

using namespace filtcommon;

class ImgProFiltFrequency : public algokit::PluginBase
{
public:
    ImgProFiltFrequency() : PluginBase(QStringLiteral("ImgProFiltFrequency")) {}

protected:
    bool run() override
    {
        const auto& record = params<ImgProFiltFrequencyParam>();
        if (record.filterKind < 0 || record.filterKind > 3)
            return fail(QStringLiteral("Filter kind %1 is outside 0-3").arg(record.filterKind));
        if (record.passFlag != 0 && record.passFlag != 1)
            return fail(QStringLiteral("Pass flag %1 is neither 0 (low) nor 1 (high)").arg(record.passFlag));
        if (record.cutOff < 0 || (record.filterKind == 3 && record.segmentPoint < 0))
            return fail(QStringLiteral("Cut-off and segmentation point must not be negative"));
        if (record.filterKind == 3 && record.segmentPoint == record.cutOff)
            return fail(QStringLiteral("The trapezoid needs a segmentation point different from the cut-off"));
        const double d0 = record.cutOff, d1 = record.segmentPoint;
        const bool high = record.passFlag == 1;
        FrequencyPass pass;
        switch (record.filterKind)
        {
        case 0: pass.transfer = [=](double d) { return (d <= d0) != high ? 1.0 : 0.0; }; break;
        case 1:
            pass.transfer = [=](double d) {
                const double low = d0 <= 0.0 ? (d == 0.0 ? 1.0 : 0.0) : 1.0 / (1.0 + std::pow(d / d0, 4.0));
                return high ? 1.0 - low : low;
            };
            break;
        case 2:
            pass.transfer = [=](double d) {
                const double low = d0 <= 0.0 ? (d == 0.0 ? 1.0 : 0.0) : std::exp(-d * d / (2.0 * d0 * d0));
                return high ? 1.0 - low : low;
            };
            break;
        default:
            pass.transfer = [=](double d) {
                if (!high)
                    return d <= d0 ? 1.0 : d >= d1 ? 0.0 : (d1 - d) / (d1 - d0);
                return d <= d1 ? 0.0 : d >= d0 ? 1.0 : (d - d1) / (d0 - d1);
            };
        }
        runFrequencyFilter(jobOf(record), pass, [this](double percent) { progress(percent); });
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgProFiltFrequency)

// Plug-in "ImgProFiltHomo": homomorphic filtering. Each pixel becomes ln(1 + max(x, 0)), the spectrum is weighted
// by an emphasis curve rising from gammaLow at the zero frequency to gammaHigh, and the result is exp(y) - 1:
//   order 0:  H(D) = gammaLow + (gammaHigh - gammaLow) (1 - exp(-c D^2 / D0^2))      (c: sharpness)
//   order k:  H(D) = gammaLow + (gammaHigh - gammaLow) / (1 + (D0 / D)^(2k))        (Butterworth, c unused)
// D is the distance from the zero frequency in spectrum samples, D0 the cut-off. Output Float32.
#include "../ImgProFiltCommon/frequency_filter.h"

namespace
{

using namespace filtcommon;

class ImgProFiltHomo : public algokit::PluginBase
{
public:
    ImgProFiltHomo() : PluginBase(QStringLiteral("ImgProFiltHomo")) {}

protected:
    bool run() override
    {
        const auto& record = params<ImgProFiltHomoParam>();
        const double high = record.gammaHigh, low = record.gammaLow, d0 = record.cutOff, c = record.sharpness;
        const int order = record.order;
        if (!std::isfinite(high) || !std::isfinite(low) || !std::isfinite(d0) || !std::isfinite(c) || order < 0)
            return fail(QStringLiteral("Homomorphic parameters must be finite and the order not negative"));
        FrequencyPass pass;
        pass.transfer = [=](double d) {
            if (d0 <= 0.0)
                return d == 0.0 ? low : high;
            if (order == 0)
                return low + (high - low) * (1.0 - std::exp(-c * d * d / (d0 * d0)));
            return d == 0.0 ? low : low + (high - low) / (1.0 + std::pow(d0 / d, 2.0 * order));
        };
        pass.before = [](double x) { return std::log1p(std::max(x, 0.0)); };
        pass.after = [](double y) { return std::expm1(y); };
        runFrequencyFilter(jobOf(record), pass, [this](double percent) { progress(percent); });
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgProFiltHomo)

// RPC evaluation, fitting and text output.
#include "rpc_model.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>

namespace sargeo
{

std::array<double, 20> rpcTerms(double L, double P, double H)
{
    return {1.0,       L,         P,         H,         L * P,     L * H,     P * H,
            L * L,     P * P,     H * H,     P * L * H, L * L * L, L * P * P, L * H * H,
            L * L * P, P * P * P, P * H * H, L * L * H, P * P * H, H * H * H};
}

namespace
{

double dot(const std::array<double, 20>& c, const std::array<double, 20>& t)
{
    double s = 0.0;
    for (size_t i = 0; i < 20; ++i)
        s += c[i] * t[i];
    return s;
}

// One ratio r = N/D (D's first coefficient fixed at 1) fitted to normalised targets.
void fitRatio(const std::vector<std::array<double, 20>>& terms, const std::vector<double>& r, double lambda,
              std::array<double, 20>* num, std::array<double, 20>* den)
{
    const int n = int(terms.size());
    Eigen::MatrixXd m(n, 39);
    Eigen::VectorXd rhs(n);
    for (int i = 0; i < n; ++i)
    {
        for (int j = 0; j < 20; ++j)
            m(i, j) = terms[size_t(i)][size_t(j)];
        for (int j = 1; j < 20; ++j)
            m(i, 19 + j) = -r[size_t(i)] * terms[size_t(i)][size_t(j)];
        rhs(i) = r[size_t(i)];
    }
    Eigen::VectorXd weight = Eigen::VectorXd::Ones(n);
    Eigen::VectorXd x = Eigen::VectorXd::Zero(39);
    for (int iteration = 0; iteration < 10; ++iteration)
    {
        // Least squares on the weighted rows stacked over sqrt(lambda) I (QR: no squared condition number).
        Eigen::MatrixXd a(n + 39, 39);
        Eigen::VectorXd b(n + 39);
        a.topRows(n) = weight.asDiagonal() * m;
        a.bottomRows(39) = std::sqrt(lambda) * Eigen::MatrixXd::Identity(39, 39);
        b.head(n) = weight.asDiagonal() * rhs;
        b.tail(39).setZero();
        const Eigen::VectorXd next = a.colPivHouseholderQr().solve(b);
        if (!next.allFinite())
            throw std::runtime_error("the RPC least-squares system is singular");
        const double change = (next - x).norm();
        x = next;
        // Tao and Hu: weight each equation by 1/D so that the residual is that of the ratio itself.
        for (int i = 0; i < n; ++i)
        {
            double d = 1.0;
            for (int j = 1; j < 20; ++j)
                d += x(19 + j) * terms[size_t(i)][size_t(j)];
            weight(i) = std::abs(d) > 1e-12 ? 1.0 / d : 1.0;
        }
        if (change < 1e-15 * std::max(1.0, x.norm()))
            break;
    }
    for (int j = 0; j < 20; ++j)
        (*num)[size_t(j)] = x(j);
    (*den)[0] = 1.0;
    for (int j = 1; j < 20; ++j)
        (*den)[size_t(j)] = x(19 + j);
}

} // namespace

void RpcModel::project(double latitude, double longitude, double height, double* line, double* sample) const
{
    const auto t = rpcTerms((longitude - lonOffset) / lonScale, (latitude - latOffset) / latScale,
                            (height - heightOffset) / heightScale);
    *line = dot(lineNum, t) / dot(lineDen, t) * lineScale + lineOffset;
    *sample = dot(sampNum, t) / dot(sampDen, t) * sampScale + sampOffset;
}

RpcModel fitRpc(const std::vector<RpcPoint>& points, double lambda)
{
    if (points.size() < 39)
        throw std::runtime_error("an RPC fit needs at least 39 points");
    RpcModel model;
    const double n = double(points.size());
    for (const RpcPoint& p : points)
    {
        model.latOffset += p.latitude / n;
        model.lonOffset += p.longitude / n;
        model.heightOffset += p.height / n;
        model.lineOffset += p.line / n;
        model.sampOffset += p.sample / n;
    }
    auto spread = [&](auto member, double offset) {
        double s = 0.0;
        for (const RpcPoint& p : points)
            s = std::max(s, std::abs(p.*member - offset));
        return s > 0.0 ? s : 1.0;
    };
    model.latScale = spread(&RpcPoint::latitude, model.latOffset);
    model.lonScale = spread(&RpcPoint::longitude, model.lonOffset);
    model.heightScale = spread(&RpcPoint::height, model.heightOffset);
    model.lineScale = spread(&RpcPoint::line, model.lineOffset);
    model.sampScale = spread(&RpcPoint::sample, model.sampOffset);

    std::vector<std::array<double, 20>> terms;
    std::vector<double> lines, samples;
    for (const RpcPoint& p : points)
    {
        terms.push_back(rpcTerms((p.longitude - model.lonOffset) / model.lonScale,
                                 (p.latitude - model.latOffset) / model.latScale,
                                 (p.height - model.heightOffset) / model.heightScale));
        lines.push_back((p.line - model.lineOffset) / model.lineScale);
        samples.push_back((p.sample - model.sampOffset) / model.sampScale);
    }
    fitRatio(terms, lines, lambda, &model.lineNum, &model.lineDen);
    fitRatio(terms, samples, lambda, &model.sampNum, &model.sampDen);
    return model;
}

RpcResiduals rpcResiduals(const RpcModel& model, const std::vector<RpcPoint>& points)
{
    RpcResiduals r;
    if (points.empty())
        return r;
    double sum = 0.0;
    for (const RpcPoint& p : points)
    {
        double line, sample;
        model.project(p.latitude, p.longitude, p.height, &line, &sample);
        const double d2 = (line - p.line) * (line - p.line) + (sample - p.sample) * (sample - p.sample);
        sum += d2;
        r.max = std::max(r.max, std::sqrt(d2));
    }
    r.rms = std::sqrt(sum / double(points.size()));
    return r;
}

namespace
{

std::string number(double value)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%+.15E", value);
    return buffer;
}

} // namespace

std::string formatRpcGroupText(const RpcModel& m, const std::string& satelliteId)
{
    std::string s = "satId = \"" + satelliteId + "\";\nbandId = \"P\";\nSpecId = \"RPC00B\";\nBEGIN_GROUP = IMAGE\n";
    auto scalar = [&](const char* key, double v) { s += std::string("\t") + key + " = " + number(v) + ";\n"; };
    scalar("errBias", m.errBias);
    scalar("errRand", m.errRand);
    scalar("lineOffset", m.lineOffset);
    scalar("sampOffset", m.sampOffset);
    scalar("latOffset", m.latOffset);
    scalar("longOffset", m.lonOffset);
    scalar("heightOffset", m.heightOffset);
    scalar("lineScale", m.lineScale);
    scalar("sampScale", m.sampScale);
    scalar("latScale", m.latScale);
    scalar("longScale", m.lonScale);
    scalar("heightScale", m.heightScale);
    auto coefficients = [&](const char* key, const std::array<double, 20>& c) {
        s += std::string("\t") + key + " = (\n";
        for (size_t i = 0; i < 20; ++i)
            s += "\t\t\t" + number(c[i]) + (i + 1 < 20 ? ",\n" : ");\n");
    };
    coefficients("lineNumCoef", m.lineNum);
    coefficients("lineDenCoef", m.lineDen);
    coefficients("sampNumCoef", m.sampNum);
    coefficients("sampDenCoef", m.sampDen);
    s += "END_GROUP = IMAGE\nEND;\n";
    return s;
}

std::string formatRpcTxt(const RpcModel& m)
{
    std::string s;
    auto line = [&](const std::string& key, double v) { s += key + ": " + number(v) + "\n"; };
    line("ERR_BIAS", m.errBias);
    line("ERR_RAND", m.errRand);
    line("LINE_OFF", m.lineOffset);
    line("SAMP_OFF", m.sampOffset);
    line("LAT_OFF", m.latOffset);
    line("LONG_OFF", m.lonOffset);
    line("HEIGHT_OFF", m.heightOffset);
    line("LINE_SCALE", m.lineScale);
    line("SAMP_SCALE", m.sampScale);
    line("LAT_SCALE", m.latScale);
    line("LONG_SCALE", m.lonScale);
    line("HEIGHT_SCALE", m.heightScale);
    auto coefficients = [&](const char* key, const std::array<double, 20>& c) {
        for (size_t i = 0; i < 20; ++i)
            line(std::string(key) + "_" + std::to_string(i + 1), c[i]);
    };
    coefficients("LINE_NUM_COEFF", m.lineNum);
    coefficients("LINE_DEN_COEFF", m.lineDen);
    coefficients("SAMP_NUM_COEFF", m.sampNum);
    coefficients("SAMP_DEN_COEFF", m.sampDen);
    return s;
}

} // namespace sargeo

namespace sargeo
{

namespace
{

std::string lowered(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string trimmed(const std::string& s)
{
    const size_t begin = s.find_first_not_of(" \t\r\n\"");
    if (begin == std::string::npos)
        return {};
    const size_t end = s.find_last_not_of(" \t\r\n\"");
    return s.substr(begin, end - begin + 1);
}

double parsedNumber(const std::string& key, const std::string& text)
{
    const std::string t = trimmed(text);
    char* end = nullptr;
    const double v = std::strtod(t.c_str(), &end);
    if (t.empty() || end != t.c_str() + t.size() || !std::isfinite(v))
        throw std::runtime_error("the RPC value of " + key + " (" + t.substr(0, 40) + ") is not a number");
    return v;
}

} // namespace

RpcModel parseRpcGroupText(const std::string& text)
{
    // Statements end with ';'; a coefficient list is "( v, v, ... )" spread over lines.
    std::map<std::string, std::string> values;
    size_t at = 0;
    while (at < text.size())
    {
        const size_t end = text.find(';', at);
        const std::string statement = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        at = end == std::string::npos ? text.size() : end + 1;
        const size_t equals = statement.find('=');
        if (equals == std::string::npos)
            continue;
        std::string key = lowered(trimmed(statement.substr(0, equals)));
        // "BEGIN_GROUP = IMAGE" shares a statement with the first key inside the group.
        const size_t lastLine = key.find_last_of("\n");
        if (lastLine != std::string::npos)
            key = lowered(trimmed(key.substr(lastLine + 1)));
        values[key] = statement.substr(equals + 1);
    }
    auto scalar = [&](const char* key) {
        const auto it = values.find(lowered(key));
        if (it == values.end())
            throw std::runtime_error(std::string("the RPC has no ") + key);
        return parsedNumber(key, it->second);
    };
    auto coefficients = [&](const char* key) {
        const auto it = values.find(lowered(key));
        if (it == values.end())
            throw std::runtime_error(std::string("the RPC has no ") + key);
        std::string list = it->second;
        const size_t open = list.find('('), close = list.rfind(')');
        if (open == std::string::npos || close == std::string::npos || close < open)
            throw std::runtime_error(std::string("the RPC ") + key + " is not a list in parentheses");
        list = list.substr(open + 1, close - open - 1);
        std::array<double, 20> c{};
        size_t n = 0, from = 0;
        while (from <= list.size())
        {
            const size_t comma = list.find(',', from);
            const std::string item = list.substr(from, comma == std::string::npos ? std::string::npos : comma - from);
            if (n == 20)
                throw std::runtime_error(std::string("the RPC ") + key + " has more than 20 coefficients");
            c[n++] = parsedNumber(key, item);
            if (comma == std::string::npos)
                break;
            from = comma + 1;
        }
        if (n != 20)
            throw std::runtime_error(std::string("the RPC ") + key + " has " + std::to_string(n) + " coefficients, not 20");
        return c;
    };
    RpcModel m;
    m.lineOffset = scalar("lineOffset");
    m.sampOffset = scalar("sampOffset");
    m.latOffset = scalar("latOffset");
    m.lonOffset = scalar("longOffset");
    m.heightOffset = scalar("heightOffset");
    m.lineScale = scalar("lineScale");
    m.sampScale = scalar("sampScale");
    m.latScale = scalar("latScale");
    m.lonScale = scalar("longScale");
    m.heightScale = scalar("heightScale");
    for (double scale : {m.lineScale, m.sampScale, m.latScale, m.lonScale, m.heightScale})
        if (scale == 0.0)
            throw std::runtime_error("the RPC has a zero scale");
    m.lineNum = coefficients("lineNumCoef");
    m.lineDen = coefficients("lineDenCoef");
    m.sampNum = coefficients("sampNumCoef");
    m.sampDen = coefficients("sampDenCoef");
    if (values.count("errbias"))
        m.errBias = parsedNumber("errBias", values["errbias"]);
    if (values.count("errrand"))
        m.errRand = parsedNumber("errRand", values["errrand"]);
    return m;
}

} // namespace sargeo

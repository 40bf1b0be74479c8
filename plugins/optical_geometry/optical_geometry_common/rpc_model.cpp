// RPC text files, RPC evaluation and control point lists.
#include "rpc_model.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <sstream>

namespace optgeo
{

namespace
{

std::string normalisedKey(const std::string& key)
{
    std::string out;
    for (char c : key)
        if (std::isalnum(static_cast<unsigned char>(c)))
            out += char(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// Numbers of a value text: "+005760.00 pixels" gives 5760, "( 1, 2, 3 )" gives 1, 2, 3.
std::vector<double> numbersIn(const std::string& text)
{
    std::vector<double> out;
    const char* p = text.c_str();
    while (*p)
    {
        if (std::isdigit(static_cast<unsigned char>(*p)) || ((*p == '-' || *p == '+' || *p == '.') && p[1] &&
                                                            (std::isdigit(static_cast<unsigned char>(p[1])) || p[1] == '.')))
        {
            char* end = nullptr;
            const double v = std::strtod(p, &end);
            if (end == p)
            {
                ++p;
                continue;
            }
            out.push_back(v);
            p = end;
        }
        else if (std::isalpha(static_cast<unsigned char>(*p)))
        {
            // a unit word ends the numbers of this value
            break;
        }
        else
            ++p;
    }
    return out;
}

// Key -> numbers, from either layout. "X_COEFF_<n>" lines are gathered into the list "xcoeff".
std::map<std::string, std::vector<double>> keyValues(const std::string& text)
{
    std::map<std::string, std::vector<double>> values;
    size_t pos = 0;
    while (pos < text.size())
    {
        const size_t sep = text.find_first_of("=:", pos);
        if (sep == std::string::npos)
            break;
        const size_t lineStart = text.find_last_of("\n;", sep);
        const std::string rawKey = text.substr(lineStart == std::string::npos || lineStart < pos ? pos : lineStart + 1,
                                               sep - (lineStart == std::string::npos || lineStart < pos ? pos : lineStart + 1));
        size_t end;
        if (text[sep] == '=')
        {
            const size_t open = text.find_first_not_of(" \t\r\n", sep + 1);
            if (open != std::string::npos && text[open] == '(')
                end = text.find(')', open);
            else
                end = text.find_first_of(";\n", sep + 1);
        }
        else
            end = text.find('\n', sep + 1);
        if (end == std::string::npos)
            end = text.size();
        std::string key = normalisedKey(rawKey);
        const std::vector<double> numbers = numbersIn(text.substr(sep + 1, end - sep - 1));
        // _RPC.TXT: LINE_NUM_COEFF_7 -> linenumcoeff, item 7
        const size_t digits = key.find_last_not_of("0123456789");
        if (digits != std::string::npos && digits + 1 < key.size() && key.compare(0, 3, "err") != 0 &&
            key.find("coef") != std::string::npos)
        {
            const int index = std::atoi(key.c_str() + digits + 1);
            key = key.substr(0, digits + 1);
            std::vector<double>& list = values[key];
            if (index >= 1 && index <= 20 && !numbers.empty())
            {
                if (list.size() < size_t(index))
                    list.resize(index, std::nan(""));
                list[index - 1] = numbers.front();
            }
        }
        else if (!key.empty())
            values[key] = numbers;
        pos = end + 1;
    }
    return values;
}

const std::vector<double>* find(const std::map<std::string, std::vector<double>>& values,
                                std::initializer_list<const char*> names)
{
    for (const char* name : names)
    {
        const auto it = values.find(name);
        if (it != values.end() && !it->second.empty())
            return &it->second;
    }
    return nullptr;
}

} // namespace

bool parseRpcText(const std::string& text, RpcModel* model, std::string* error)
{
    const auto values = keyValues(text);
    struct Scalar
    {
        double* target;
        std::initializer_list<const char*> names;
        bool required;
    };
    RpcModel m;
    const Scalar scalars[] = {
        {&m.lineOff, {"lineoffset", "lineoff"}, true},     {&m.sampOff, {"sampoffset", "sampoff"}, true},
        {&m.latOff, {"latoffset", "latoff"}, true},        {&m.longOff, {"longoffset", "longoff", "lonoffset"}, true},
        {&m.heightOff, {"heightoffset", "heightoff"}, true}, {&m.lineScale, {"linescale"}, true},
        {&m.sampScale, {"sampscale"}, true},               {&m.latScale, {"latscale"}, true},
        {&m.longScale, {"longscale", "lonscale"}, true},   {&m.heightScale, {"heightscale"}, true},
        {&m.errBias, {"errbias"}, false},                  {&m.errRand, {"errrand"}, false},
    };
    for (const Scalar& s : scalars)
    {
        const std::vector<double>* v = find(values, s.names);
        if (!v)
        {
            if (!s.required)
                continue;
            *error = std::string("the key ") + *s.names.begin() + " is missing";
            return false;
        }
        *s.target = v->front();
        if (!std::isfinite(*s.target))
        {
            *error = std::string("the key ") + *s.names.begin() + " is not a number";
            return false;
        }
    }
    struct List
    {
        std::array<double, 20>* target;
        std::initializer_list<const char*> names;
    };
    const List lists[] = {
        {&m.lineNum, {"linenumcoef", "linenumcoeff"}},
        {&m.lineDen, {"linedencoef", "linedencoeff"}},
        {&m.sampNum, {"sampnumcoef", "sampnumcoeff"}},
        {&m.sampDen, {"sampdencoef", "sampdencoeff"}},
    };
    for (const List& l : lists)
    {
        const std::vector<double>* v = find(values, l.names);
        if (!v || v->size() != 20 || !std::all_of(v->begin(), v->end(), [](double x) { return std::isfinite(x); }))
        {
            *error = std::string("the key ") + *l.names.begin() + " does not hold 20 numbers";
            return false;
        }
        std::copy(v->begin(), v->end(), l.target->begin());
    }
    for (double scale : {m.lineScale, m.sampScale, m.latScale, m.longScale, m.heightScale})
        if (scale == 0.0)
        {
            *error = "a scale is zero";
            return false;
        }
    *model = m;
    return true;
}

std::array<double, 20> rpcTerms(double L, double P, double H)
{
    return {1.0,       L,         P,         H,         L * P,     L * H,     P * H,
            L * L,     P * P,     H * H,     P * L * H, L * L * L, L * P * P, L * H * H,
            L * L * P, P * P * P, P * H * H, L * L * H, P * P * H, H * H * H};
}

void rpcGroundToImage(const RpcModel& m, double lon, double lat, double height, double* sample, double* line)
{
    const std::array<double, 20> t =
        rpcTerms((lon - m.longOff) / m.longScale, (lat - m.latOff) / m.latScale, (height - m.heightOff) / m.heightScale);
    double ln = 0, ld = 0, sn = 0, sd = 0;
    for (int k = 0; k < 20; ++k)
    {
        ln += m.lineNum[k] * t[k];
        ld += m.lineDen[k] * t[k];
        sn += m.sampNum[k] * t[k];
        sd += m.sampDen[k] * t[k];
    }
    *line = m.lineOff + m.lineScale * ln / ld;
    *sample = m.sampOff + m.sampScale * sn / sd;
}

bool parseControlPoints(const std::string& text, std::vector<ControlPoint>* points, std::string* error)
{
    std::istringstream in(text);
    std::string line;
    int number = 0;
    std::vector<ControlPoint> out;
    while (std::getline(in, line))
    {
        ++number;
        std::replace(line.begin(), line.end(), ',', ' ');
        std::replace(line.begin(), line.end(), '\t', ' ');
        std::replace(line.begin(), line.end(), '\r', ' ');
        const size_t first = line.find_first_not_of(' ');
        if (first == std::string::npos || line[first] == '#')
            continue;
        std::istringstream fields(line);
        std::vector<double> v;
        std::string field;
        while (fields >> field)
        {
            char* end = nullptr;
            const double value = std::strtod(field.c_str(), &end);
            if (end == field.c_str() || *end != '\0' || !std::isfinite(value))
            {
                *error = "line " + std::to_string(number) + " holds " + field + ", which is not a number";
                return false;
            }
            v.push_back(value);
        }
        if (v.size() != 4 && v.size() != 5)
        {
            *error = "line " + std::to_string(number) + " has " + std::to_string(v.size()) +
                     " values instead of pixel, line, longitude, latitude[, height]";
            return false;
        }
        if (std::fabs(v[2]) > 180.0 || std::fabs(v[3]) > 90.0)
        {
            *error = "line " + std::to_string(number) + " has a longitude or latitude out of range";
            return false;
        }
        ControlPoint p;
        p.pixel = v[0];
        p.line = v[1];
        p.lon = v[2];
        p.lat = v[3];
        p.hasHeight = v.size() == 5;
        p.height = p.hasHeight ? v[4] : 0.0;
        out.push_back(p);
    }
    *points = std::move(out);
    return true;
}

} // namespace optgeo

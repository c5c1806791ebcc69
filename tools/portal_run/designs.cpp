// Design generation (grid, list, Latin hypercube) and value formatting.
// The hypercube draws from std::mt19937_64, whose sequence the C++ standard
// fixes, and turns its bits into numbers by hand, since the standard
// distributions may differ between library implementations.
#include "designs.h"

#include <algorithm>
#include <charconv>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <random>

namespace portalrun {

namespace {

// "study.toml:12" for the parameter's table, so the user finds it.
std::string placeOf(const Study& s, const Parameter& p) {
    const std::string file = s.file.empty() ? s.path : s.file;
    return p.line > 0 ? file + ":" + std::to_string(p.line) : file;
}

std::vector<Design> grid(const Study& s) {
    long long total = 1;
    for (const Parameter& p : s.parameters) {
        total *= static_cast<long long>(p.values.size());
        if (total > kMaxDesigns)
            throw StudyError((s.file.empty() ? s.path : s.file) + ": the grid has more than " +
                             std::to_string(kMaxDesigns) + " designs");
    }
    std::vector<Design> out(static_cast<std::size_t>(total));
    for (long long i = 0; i < total; ++i) {
        Design& d = out[static_cast<std::size_t>(i)];
        d.number = static_cast<int>(i + 1);
        d.values.resize(s.parameters.size());
        long long rest = i;  // mixed radix, the last parameter fastest
        for (std::size_t k = s.parameters.size(); k-- > 0;) {
            const auto n = static_cast<long long>(s.parameters[k].values.size());
            d.values[k] = s.parameters[k].values[static_cast<std::size_t>(rest % n)];
            rest /= n;
        }
    }
    return out;
}

std::vector<Design> list(const Study& s) {
    std::size_t n = 1;
    const Parameter* longest = nullptr;
    for (const Parameter& p : s.parameters) {
        if (p.values.size() == 1) continue;
        if (longest && p.values.size() != n)
            throw StudyError(placeOf(s, p) + ": method \"list\": parameter '" + p.name +
                             "' has " + std::to_string(p.values.size()) + " values, '" +
                             longest->name + "' (line " + std::to_string(longest->line) +
                             ") has " + std::to_string(n));
        longest = &p;
        n = p.values.size();
    }
    std::vector<Design> out(n);
    for (std::size_t i = 0; i < n; ++i) {
        out[i].number = static_cast<int>(i + 1);
        for (const Parameter& p : s.parameters)
            out[i].values.push_back(p.values[p.values.size() == 1 ? 0 : i]);
    }
    return out;
}

double unit(std::mt19937_64& rng) {  // uniform in [0, 1)
    return static_cast<double>(rng() >> 11) * 0x1.0p-53;
}

std::vector<std::size_t> permutation(std::size_t n, std::mt19937_64& rng) {
    std::vector<std::size_t> p(n);
    for (std::size_t i = 0; i < n; ++i) p[i] = i;
    for (std::size_t i = n; i > 1; --i) {  // Fisher-Yates
        auto j = static_cast<std::size_t>(unit(rng) * static_cast<double>(i));
        std::swap(p[i - 1], p[std::min(j, i - 1)]);
    }
    return p;
}

Value sample(const Parameter& p, double u) {
    if (!p.bounded) {
        auto k = static_cast<std::size_t>(u * static_cast<double>(p.values.size()));
        return p.values[std::min(k, p.values.size() - 1)];
    }
    if (p.type == ParamType::Integer) {
        double v = std::floor(p.min + u * (p.max - p.min + 1));
        return Value::ofInteger(static_cast<long long>(std::min(v, p.max)));
    }
    return Value::ofReal(p.min + u * (p.max - p.min));
}

std::vector<Design> hypercube(const Study& s) {
    const auto n = static_cast<std::size_t>(s.samples);
    std::mt19937_64 rng(s.seed);
    std::vector<Design> out(n);
    for (std::size_t i = 0; i < n; ++i) {
        out[i].number = static_cast<int>(i + 1);
        out[i].values.resize(s.parameters.size());
    }
    for (std::size_t k = 0; k < s.parameters.size(); ++k) {
        const Parameter& p = s.parameters[k];
        if (!p.bounded && p.values.size() == 1) {
            for (Design& d : out) d.values[k] = p.values[0];
            continue;
        }
        // Each stratum once; the random point inside it is drawn per design.
        const std::vector<std::size_t> strata = permutation(n, rng);
        for (std::size_t i = 0; i < n; ++i) {
            double u = (static_cast<double>(strata[i]) + unit(rng)) / static_cast<double>(n);
            out[i].values[k] = sample(p, std::min(u, std::nextafter(1.0, 0.0)));
        }
    }
    return out;
}

struct Conversion {
    std::string prefix, suffix, spec;  // spec without length modifier and conversion
    char conv = 0;
};

bool parseFormat(const std::string& f, Conversion& c, std::string& error) {
    for (std::size_t i = 0; i < f.size(); ++i) {
        std::string& text = c.conv ? c.suffix : c.prefix;
        if (f[i] != '%') {
            text += f[i];
            continue;
        }
        if (i + 1 < f.size() && f[i + 1] == '%') {
            text += '%';
            ++i;
            continue;
        }
        if (c.conv) return error = "format '" + f + "' has more than one conversion", false;
        std::size_t j = i + 1;
        while (j < f.size() && std::string_view("-+ #0").find(f[j]) != std::string_view::npos) ++j;
        std::size_t digits = 0;
        for (bool dot = false;; dot = true) {
            std::size_t start = j;
            while (j < f.size() && std::isdigit(static_cast<unsigned char>(f[j]))) ++j;
            digits = std::max(digits, j - start);
            if (dot || j >= f.size() || f[j] != '.') break;
            ++j;
        }
        if (digits > 3) return error = "format '" + f + "': width or precision too large", false;
        c.spec = f.substr(i, j - i);
        while (j < f.size() && std::string_view("hlLqjzt").find(f[j]) != std::string_view::npos) ++j;
        if (j >= f.size()) return error = "format '" + f + "' ends inside a conversion", false;
        c.conv = f[j];
        if (std::string_view("diuoxXfFeEgGaAs").find(c.conv) == std::string_view::npos)
            return error = "format '" + f + "': unsupported conversion '%" + c.conv + "'", false;
        i = j;
    }
    if (!c.conv) return error = "format '" + f + "' has no conversion", false;
    return true;
}

template <typename T>
std::string print(const std::string& spec, T value) {
    int n = std::snprintf(nullptr, 0, spec.c_str(), value);
    std::string out(static_cast<std::size_t>(std::max(n, 0)) + 1, '\0');
    std::snprintf(out.data(), out.size(), spec.c_str(), value);
    out.resize(static_cast<std::size_t>(std::max(n, 0)));
    return out;
}

}  // namespace

std::vector<Design> generateDesigns(const Study& study) {
    switch (study.method) {
        case Method::Grid: return grid(study);
        case Method::List: return list(study);
        case Method::Lhs: return hypercube(study);
    }
    return {};
}

std::string valueText(const Value& v) {
    switch (v.kind) {
        case Value::Kind::Text: return v.text;
        case Value::Kind::Integer: return std::to_string(v.integer);
        case Value::Kind::Real: break;
    }
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof buf, v.real);
    return std::string(buf, res.ptr);
}

bool formatValue(const Value& v, const std::string& format, std::string& out,
                 std::string& error) {
    if (format.empty() || format == "Default") {
        out = valueText(v);
        return true;
    }
    Conversion c;
    if (!parseFormat(format, c, error)) return false;
    const std::string_view integers = "diuoxX";
    std::string body;
    if (c.conv == 's') {
        body = print(c.spec + 's', valueText(v).c_str());
    } else if (v.kind == Value::Kind::Text) {
        error = "the text '" + v.text + "' can't be printed with the format '" + format + "'";
        return false;
    } else if (integers.find(c.conv) != std::string_view::npos) {
        double d = v.kind == Value::Kind::Real ? std::round(v.real) : 0.0;
        if (v.kind == Value::Kind::Real && !(std::fabs(d) < 9.2e18)) {
            error = "the value " + valueText(v) + " doesn't fit the format '" + format + "'";
            return false;
        }
        long long i = v.kind == Value::Kind::Integer ? v.integer : static_cast<long long>(d);
        const std::string spec = c.spec + "ll" + c.conv;
        body = c.conv == 'd' || c.conv == 'i' ? print(spec, i)
                                              : print(spec, static_cast<unsigned long long>(i));
    } else {
        double d = v.kind == Value::Kind::Real ? v.real : static_cast<double>(v.integer);
        body = print(c.spec + c.conv, d);
    }
    out = c.prefix + body + c.suffix;
    return true;
}

}  // namespace portalrun

/*
 * zu_units_best.cpp - preferred names of dimension texts and the best
 * prefixed form of a unit for a value.
 *
 * A preferred form marks with '%' the place where a prefix goes and with '#'
 * a place where it counts with inverted power (a term of a denominator). A
 * dimension text without a row in the derived table gets a form built from
 * its exponents, positive ones over negative ones.
 */
#include "zu_units_inner.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace zu_units {

namespace {

const char *const kPrefixLetters[17] = {"y", "z", "a", "f", "p", "n", "u", "m", "",
                                        "k", "M", "G", "T", "P", "E", "Z", "Y"};

/* Numerator over denominator, with '%' before the numerator's term of the
 * smallest power of at least 1, or '#' before the denominator's when that
 * one is smaller. */
std::string buildForm(const Tables &t, const Dims &d)
{
    struct Term {
        int base;
        double power;
    };
    std::vector<Term> num, den;
    int numAt = -1, denAt = -1;
    for (int i = 0; i < t.baseCount; ++i) {
        double e = d.e[i];
        if (e == 0)
            continue;
        auto &side = e > 0 ? num : den;
        int &at = e > 0 ? numAt : denAt;
        double p = std::fabs(e);
        if (p >= 1 && (at < 0 || p < side[static_cast<size_t>(at)].power))
            at = static_cast<int>(side.size());
        side.push_back({i, p});
    }
    bool inverted = denAt >= 0 && (numAt < 0 || den[static_cast<size_t>(denAt)].power <
                                                    num[static_cast<size_t>(numAt)].power);
    auto join = [&](const std::vector<Term> &terms, int markAt, char marker, std::string &out) {
        for (size_t k = 0; k < terms.size(); ++k) {
            if (k)
                out += '.';
            if (static_cast<int>(k) == markAt)
                out += marker;
            out += t.bases[terms[k].base];
            if (terms[k].power != 1)
                printExponent(terms[k].power, out);
        }
    };
    std::string form;
    if (num.empty())
        form += '1';
    join(num, inverted ? -1 : numAt, '%', form);
    if (!den.empty()) {
        form += '/';
        if (den.size() > 1)
            form += '(';
        join(den, inverted ? denAt : -1, '#', form);
        if (den.size() > 1)
            form += ')';
    }
    return form;
}

/* The power of the marked term: letters out of a small set, then digits. */
int markedPower(const std::string &form, size_t marker)
{
    size_t i = marker + 1;
    while (i < form.size() && strchr("$AKNacdgklmoprs", form[i]))
        ++i;
    size_t digits = i;
    while (i < form.size() && form[i] >= '0' && form[i] <= '9')
        ++i;
    return i == digits ? 1 : atoi(form.substr(digits, i - digits).c_str());
}

int decimalExponent(double x)
{
    char buf[64];
    snprintf(buf, sizeof buf, "%e", x);
    const char *e = strchr(buf, 'e');
    return e ? atoi(e + 1) : 0;
}

bool copyOut(const std::string &text, char *out, int size)
{
    if (!out || size < 1)
        return false;
    size_t n = std::min(text.size(), static_cast<size_t>(size - 1));
    memcpy(out, text.data(), n);
    out[n] = '\0';
    return n == text.size();
}

} // namespace

} // namespace zu_units

using namespace zu_units;

extern "C" {

int ZU_unitName(const char *dims, char *out, int size)
{
    if (!dims || !out || size < 1)
        return 1;
    const char *form = findDerived(dims);
    std::string s;
    for (const char *p = form ? form : dims; *p; ++p)
        if (!form || (*p != '%' && *p != '#'))
            s += *p;
    copyOut(s, out, size);
    return 0;
}

int ZU_unitBest(const char *unit, char *out, int size, double value, double *scale, double *offset)
{
    const Tables &t = tables();
    std::string text = prepareUnitText(unit);
    Result r;
    if (int rc = evaluate(t, text, r, nullptr, false)) {
        copyOut("", out, size);
        return rc;
    }
    std::string dims;
    printDims(t, r.dims, dims);
    const char *derived = findDerived(dims);
    std::string form = derived ? derived : buildForm(t, r.dims);
    size_t marker = form.find_first_of("%#");
    int k = 0, n = 1;
    if (marker != std::string::npos) {
        n = markedPower(form, marker);
        bool inverted = form[marker] == '#';
        if (n >= 1) {
            int e = decimalExponent(std::fabs(value) * r.scale + r.offset);
            k = static_cast<int>(std::floor(static_cast<double>(e) / n / 3.0));
            k = k < -8 ? -8 : k > 8 ? 8 : k;
        }
        bool kg = form.compare(marker + 1, 2, "kg") == 0;
        /* kg carries its own kilo: the k goes and the prefix moves one up,
         * held to the end of the prefix list. */
        int index = (inverted ? -k : k) + 8 + (kg ? 1 : 0);
        if (index > 16) {
            k += inverted ? 1 : -1;
            index = 16;
        }
        form.replace(marker, kg ? 2 : 1, kPrefixLetters[index]);
    }
    double factor = std::pow(1000.0, static_cast<double>(k) * n);
    if (scale)
        *scale = r.scale / factor;
    if (offset)
        *offset = r.offset / factor;
    return copyOut(form, out, size) ? 0 : ZU_UNIT_TOO_LONG;
}

} // extern "C"

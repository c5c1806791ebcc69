/*
 * zu_random.cpp - the minimal standard generator (multiplier 16807, modulus
 * 2^31 - 1, Schrage's method so nothing overflows 32 bits) and normal
 * deviates by the polar method. The caller owns the seed; a seed outside
 * 1..2^31-2 is replaced by one built from the local clock.
 */
#include "zu_internal.h"

#include <cmath>
#include <ctime>

namespace {

constexpr int32_t kModulus = 2147483647;
constexpr int32_t kMultiplier = 16807;
constexpr int32_t kQuotient = 127773; /* kModulus / kMultiplier */
constexpr int32_t kRemainder = 2836;  /* kModulus % kMultiplier */
constexpr double kScale = 4.656612875245797e-10;

int32_t seedFromClock()
{
    time_t now = time(nullptr);
    struct tm t = {};
    localtime_r(&now, &t);
    uint32_t seed = static_cast<uint32_t>(t.tm_sec);
    seed = (seed << 6) + static_cast<uint32_t>(t.tm_min);
    seed = (seed << 5) + static_cast<uint32_t>(t.tm_hour);
    seed = (seed << 5) + static_cast<uint32_t>(t.tm_mday);
    seed = (seed << 4) + static_cast<uint32_t>(t.tm_mon + 1);
    seed = (seed << 5) + static_cast<uint32_t>(t.tm_year % 27);
    seed &= 0x7fffffffu;
    return seed == 0 || seed == static_cast<uint32_t>(kModulus) ? 1 : static_cast<int32_t>(seed);
}

} // namespace

extern "C" {

double ZU_rand(int32_t *seed)
{
    int32_t local = 0;
    if (!seed)
        seed = &local;
    if (*seed < 1 || *seed == kModulus)
        *seed = seedFromClock();
    int32_t k = *seed / kQuotient;
    int32_t next = kMultiplier * (*seed - k * kQuotient) - kRemainder * k;
    if (next < 0)
        next += kModulus;
    *seed = next;
    return next * kScale;
}

double ZU_randGauss(int32_t *seed, double *spare)
{
    double localSpare = 0;
    if (!spare)
        spare = &localSpare;
    if (seed && *seed >= 1 && *seed < kModulus && *spare != 0) {
        double value = *spare;
        *spare = 0;
        return value;
    }
    *spare = 0;
    double u, v, s;
    do {
        u = 2 * ZU_rand(seed) - 1;
        v = 2 * ZU_rand(seed) - 1;
        s = u * u + v * v;
    } while (s >= 1 || s == 0);
    double f = std::sqrt(-2 * std::log(s) / s);
    *spare = f * u;
    return f * v;
}

} // extern "C"

// The mechanics of the example solver: closed-form Euler-Bernoulli results
// for a tip-loaded cantilever, evaluated at evenly spaced stations.
//
// With the clamp at x = 0 and a force P at x = L:
//   w(x)     = P x^2 (3L - x) / (6 E I)      deflection
//   w'(x)    = P x (2L - x) / (2 E I)        slope
//   M(x)     = P (L - x)                     bending moment
//   sigma(x) = M(x) (h / 2) / I              stress at the outer fibre
// and the first natural frequency f1 = (beta1 L)^2 / (2 pi L^2) sqrt(E I / (rho A)).
#include <cmath>
#include <numbers>

#include "beam.h"

namespace beam {

namespace {
// First root of 1 + cos(x) cosh(x) = 0, the clamped-free bending mode.
constexpr double kBeta1L = 1.8751040687119611;
}  // namespace

BeamResult solveBeam(const BeamInput& in) {
    BeamResult r;
    const double L = in.length, b = in.width, h = in.height, E = in.youngsModulus, P = in.load;
    r.inertia = b * h * h * h / 12.0;
    const double EI = E * r.inertia;
    r.tipDeflection = P * L * L * L / (3.0 * EI);
    r.tipSlope = P * L * L / (2.0 * EI);
    r.maxMoment = std::fabs(P) * L;
    r.maxStress = r.maxMoment * (h / 2.0) / r.inertia;
    const double area = b * h;
    r.mass = in.density * area * L;
    r.frequency = kBeta1L * kBeta1L / (2.0 * std::numbers::pi * L * L) * std::sqrt(EI / (in.density * area));
    r.safetyFactor = r.maxStress > 0 ? in.yieldStress / r.maxStress : 0.0;

    r.stations.reserve(static_cast<size_t>(in.stations));
    for (int i = 0; i < in.stations; i++) {
        // The last station is exactly the tip, not a sum of rounded steps.
        const double x = i + 1 == in.stations ? L : L * i / (in.stations - 1);
        Station s;
        s.x = x;
        s.deflection = P * x * x * (3.0 * L - x) / (6.0 * EI);
        s.slope = P * x * (2.0 * L - x) / (2.0 * EI);
        s.moment = P * (L - x);
        s.stress = s.moment * (h / 2.0) / r.inertia;
        if (std::fabs(s.stress) > in.yieldStress) r.overstressed++;
        r.stations.push_back(s);
    }
    return r;
}

}  // namespace beam

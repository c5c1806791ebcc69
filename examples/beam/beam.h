// The bundled example solver: a cantilever beam of rectangular section,
// clamped at x = 0 and loaded by a point force at its free end x = L, after
// Euler-Bernoulli bending theory. SI units throughout.
//
// Invariants: a BeamInput that readInput accepted has positive geometry,
// stiffness and density, a finite load and at least two stations, so that
// solveBeam never divides by zero; stations are evenly spaced from the clamp
// (x = 0) to the tip (x = L), both included.
#pragma once

#include <string>
#include <vector>

namespace beam {

// Messages for the user, each at a level; written one a line, led by the
// level word, to the file the portal reads after the run.
class Messages {
public:
    void note(const std::string& text) { add("NOTE: ", text); }
    void warning(const std::string& text) { add("WARNING: ", text); }
    void error(const std::string& text) {
        add("ERROR: ", text);
        errors_++;
    }
    bool hasErrors() const { return errors_ > 0; }
    const std::vector<std::string>& lines() const { return lines_; }
    // Writes all lines to path, replacing the file. false when it can't.
    bool save(const std::string& path) const;

private:
    void add(const char* level, const std::string& text);
    std::vector<std::string> lines_;
    int errors_ = 0;
};

struct BeamInput {
    double length = 0;          // L [m]
    double width = 0;           // b [m]
    double height = 0;          // h [m]
    double youngsModulus = 0;   // E [Pa]
    double load = 0;            // P [N], positive downwards
    double density = 7850;      // rho [kg/m^3]
    double yieldStress = 250e6; // [Pa]
    int stations = 21;
};

// Reads "key = value" lines ("#" starts a comment). Problems go to msgs as
// errors (bad or missing values) or warnings (unknown or repeated keys).
void readInput(const std::string& path, BeamInput& in, Messages& msgs);

struct Station {
    double x, deflection, slope, moment, stress;
};

struct BeamResult {
    double inertia = 0;        // I = b h^3 / 12 [m^4]
    double tipDeflection = 0;  // P L^3 / (3 E I) [m]
    double tipSlope = 0;       // P L^2 / (2 E I) [rad]
    double maxMoment = 0;      // |P| L [N m]
    double maxStress = 0;      // 6 |P| L / (b h^2) [Pa]
    double mass = 0;           // rho b h L [kg]
    double frequency = 0;      // first bending mode [Hz]
    double safetyFactor = 0;   // yield / max stress; 0 without load
    int overstressed = 0;      // stations where |stress| passes the yield stress
    std::vector<Station> stations;
};

BeamResult solveBeam(const BeamInput& in);

// Writes the results as an SDF file, replacing any file there. 0, or the
// library's code.
int writeResults(const std::string& path, const BeamInput& in, const BeamResult& r);

}  // namespace beam

// The example solver's SDF output: scalars with units, the deflection line
// as a 1-D array, and a station table as a 2-D array.
//
// The table has one row per station (the first, fastest index) and five
// columns in the order x, deflection, slope, moment, stress; column c of the
// portal's naming (table__Col<c>) is thus the c-th of these. The file is
// written whole and fresh: a file left from an earlier run is replaced, and
// one that couldn't be filled is deleted.
#include "beam.h"
#include "sdf.h"

namespace beam {

namespace {

// Keeps the first failure, so that one code reaches the caller.
struct Writer {
    int ch = -1;
    int rc = 0;
    void real(const char* name, double v, const char* units, const char* desc) {
        if (!rc) rc = Sdf_Write_Var(ch, name, SDF_DBLE_T, &v, units, desc);
    }
    void integer(const char* name, int v, const char* desc) {
        if (!rc) rc = Sdf_Write_Var(ch, name, SDF_INT_T, &v, "", desc);
    }
    void array(const char* name, const std::vector<double>& v, int32_t rows, int32_t cols,
               const char* units, const char* desc) {
        int32_t dims[8] = {cols > 0 ? 2 : 1, rows, cols};
        int32_t start[8] = {dims[0], 0, 0};
        if (!rc) rc = Sdf_Define_Array(ch, name, SDF_DBLE_T, 0, dims, units, desc);
        if (!rc) rc = Sdf_Write_Array(ch, name, v.data(), start, static_cast<int32_t>(v.size()));
    }
};

}  // namespace

int writeResults(const std::string& path, const BeamInput& in, const BeamResult& r) {
    Writer w;
    if (int rc = Sdf_Open(&w.ch, path.c_str(), "BINARY", "FRESH", "WRITE"); rc >= 3000) return rc;
    w.real("tip_deflection", r.tipDeflection, "m", "deflection at the free end");
    w.real("tip_slope", r.tipSlope, "rad", "slope at the free end");
    w.real("max_moment", r.maxMoment, "N*m", "largest bending moment (at the clamp)");
    w.real("max_stress", r.maxStress, "Pa", "largest bending stress (at the clamp)");
    w.real("mass", r.mass, "kg", "mass of the beam");
    w.real("frequency", r.frequency, "Hz", "first natural bending frequency");
    w.real("safety_factor", r.safetyFactor, "", "yield stress over largest stress");
    w.real("inertia", r.inertia, "m^4", "second moment of area");
    w.integer("stations", in.stations, "number of stations along the beam");
    w.integer("overstressed", r.overstressed, "stations where the stress passes the yield stress");
    if (!w.rc) w.rc = Sdf_Write_Char(w.ch, "solver", "beam-solver (Euler-Bernoulli cantilever)", "");

    const auto n = static_cast<int32_t>(r.stations.size());
    std::vector<double> x, defl, table(r.stations.size() * 5);
    for (size_t i = 0; i < r.stations.size(); i++) {
        const Station& s = r.stations[i];
        x.push_back(s.x);
        defl.push_back(s.deflection);
        const double row[5] = {s.x, s.deflection, s.slope, s.moment, s.stress};
        for (size_t c = 0; c < 5; c++) table[i + c * r.stations.size()] = row[c];
    }
    w.array("x", x, n, 0, "m", "station positions from the clamp");
    w.array("deflection", defl, n, 0, "m", "deflection at each station");
    w.array("table", table, n, 5, "",
            "per station: x [m], deflection [m], slope [rad], moment [N*m], stress [Pa]");
    // A file we created but couldn't fill goes again: half a result is worse
    // than none.
    int closed = Sdf_Close(w.ch, w.rc ? "DELETE" : "KEEP");
    return w.rc ? w.rc : (closed >= 3000 ? closed : 0);
}

}  // namespace beam

// plate-solver: a simply supported rectangular plate under uniform pressure,
// the small XML solver of the example study. It reads its model from an XML
// input and writes its results as an XML output:
//
//   plate-solver plate.xml results.xml
//
// Deflection and bending moments at the centre come from the Navier double
// series (odd terms up to kTerms), the stress from the larger moment, the
// mass from the density. Bad input is reported as "ERROR: ..." lines on
// standard error with exit status 1, and no results file is left behind.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <pugixml.hpp>

namespace {

constexpr int kTerms = 399;

struct Plate {
    double a = 0, b = 0, t = 0, E = 0, nu = 0, rho = 0, q = 0, yield = 0;
};

std::vector<std::string> problems;

double number(pugi::xml_node node, const char* attribute, const char* what) {
    const char* text = attribute ? node.attribute(attribute).value() : node.child_value();
    char* end = nullptr;
    const double v = std::strtod(text, &end);
    if (!node || end == text || !std::isfinite(v) || v <= 0)
        problems.push_back(std::string(what) + " must be a positive number, got '" + text + "'");
    return v;
}

Plate readPlate(const pugi::xml_document& doc) {
    const pugi::xml_node plate = doc.child("plate");
    const pugi::xml_node geometry = plate.child("geometry");
    const pugi::xml_node material = plate.child("material");
    Plate p;
    p.a = number(geometry.find_child_by_attribute("dimension", "name", "a"), nullptr, "dimension a");
    p.b = number(geometry.find_child_by_attribute("dimension", "name", "b"), nullptr, "dimension b");
    p.t = number(geometry.child("thickness"), nullptr, "thickness");
    p.E = number(material, "E", "material E");
    p.nu = number(material, "nu", "material nu");
    p.rho = number(material, "density", "material density");
    p.yield = number(material, "yield", "material yield");
    p.q = number(plate.child("load"), nullptr, "load");
    if (p.nu >= 0.5) problems.push_back("material nu must be below 0.5");
    return p;
}

struct Results {
    double deflection = 0, mx = 0, my = 0;
};

Results navier(const Plate& p) {
    const double D = p.E * p.t * p.t * p.t / (12 * (1 - p.nu * p.nu));
    Results r;
    for (int m = 1; m <= kTerms; m += 2) {
        for (int n = 1; n <= kTerms; n += 2) {
            const double am = m / p.a, bn = n / p.b, k = am * am + bn * bn;
            const double sign = ((m + n) / 2 - 1) % 2 ? -1.0 : 1.0;  // sin(m pi/2) sin(n pi/2)
            const double term = sign / (m * n * k * k);
            r.deflection += term;
            r.mx += term * (am * am + p.nu * bn * bn);
            r.my += term * (bn * bn + p.nu * am * am);
        }
    }
    const double pi = 3.14159265358979323846;
    r.deflection *= 16 * p.q / (std::pow(pi, 6) * D);
    r.mx *= 16 * p.q / std::pow(pi, 4);
    r.my *= 16 * p.q / std::pow(pi, 4);
    return r;
}

void response(pugi::xml_node parent, const char* name, const char* unit, double value) {
    pugi::xml_node node = parent.append_child("response");
    node.append_attribute("name").set_value(name);
    node.append_attribute("unit").set_value(unit);
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    node.text().set(text);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: plate-solver INPUT.xml RESULTS.xml\n");
        return 2;
    }
    std::remove(argv[2]);
    pugi::xml_document input;
    const pugi::xml_parse_result loaded = input.load_file(argv[1]);
    if (!loaded) {
        std::fprintf(stderr, "ERROR: %s: %s\n", argv[1], loaded.description());
        return 1;
    }
    const Plate plate = readPlate(input);
    if (!problems.empty()) {
        for (const std::string& p : problems) std::fprintf(stderr, "ERROR: %s: %s\n", argv[1], p.c_str());
        return 1;
    }
    const Results r = navier(plate);
    const double stress = 6 * std::max(r.mx, r.my) / (plate.t * plate.t);

    pugi::xml_document out;
    pugi::xml_node results = out.append_child("results");
    results.append_attribute("solver").set_value("plate-solver");
    results.append_attribute("status").set_value(stress > plate.yield ? "yielded" : "elastic");
    response(results, "deflection", "m", r.deflection);
    response(results, "stress", "Pa", stress);
    response(results, "mass", "kg", plate.rho * plate.a * plate.b * plate.t);
    if (!out.save_file(argv[2], "  ")) {
        std::fprintf(stderr, "ERROR: cannot write %s\n", argv[2]);
        return 1;
    }
    std::printf("NOTE: centre deflection %.4g m, stress %.4g Pa\n", r.deflection, stress);
    return 0;
}

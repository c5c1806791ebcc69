// Design generation and the formatting of design values.
#include <gtest/gtest.h>

#include <set>

#include "designs.h"

using namespace portalrun;

namespace {

Parameter listed(const std::string& name, std::vector<double> values) {
    Parameter p;
    p.name = name;
    for (double v : values) p.values.push_back(Value::ofReal(v));
    return p;
}

Parameter bounded(const std::string& name, double lo, double hi,
                  ParamType type = ParamType::Real) {
    Parameter p;
    p.name = name;
    p.type = type;
    p.bounded = true;
    p.min = lo;
    p.max = hi;
    return p;
}

Study hypercube(long long samples, std::uint64_t seed, std::vector<Parameter> params) {
    Study s;
    s.method = Method::Lhs;
    s.samples = samples;
    s.seed = seed;
    s.parameters = std::move(params);
    return s;
}

TEST(DesignGeneration, GridVariesTheLastParameterFastest) {
    Study s;
    s.parameters = {listed("a", {1, 2}), listed("b", {10, 20, 30})};
    auto d = generateDesigns(s);
    ASSERT_EQ(d.size(), 6u);
    EXPECT_EQ(d[0].number, 1);
    EXPECT_EQ(d[1].values[0].real, 1);
    EXPECT_EQ(d[1].values[1].real, 20);
    EXPECT_EQ(d[3].values[0].real, 2);
    EXPECT_EQ(d[3].values[1].real, 10);
    EXPECT_EQ(d[5].number, 6);
    // No parameters: one design, so a study of a fixed input still runs.
    EXPECT_EQ(generateDesigns(Study{}).size(), 1u);
}

TEST(DesignGeneration, GridRefusesAnAbsurdSize) {
    Study s;
    std::vector<double> many(1000, 1.0);
    s.parameters = {listed("a", many), listed("b", many), listed("c", {1, 2})};
    EXPECT_THROW(generateDesigns(s), StudyError);
}

TEST(DesignGeneration, ListPairsValuesAndKeepsConstants) {
    Study s;
    s.method = Method::List;
    s.parameters = {listed("a", {1, 2, 3}), listed("k", {7}), listed("b", {4, 5, 6})};
    auto d = generateDesigns(s);
    ASSERT_EQ(d.size(), 3u);
    EXPECT_EQ(d[2].values[0].real, 3);
    EXPECT_EQ(d[2].values[1].real, 7);
    EXPECT_EQ(d[2].values[2].real, 6);
    s.parameters.push_back(listed("c", {1, 2}));
    try {
        generateDesigns(s);
        FAIL() << "lists of different lengths were accepted";
    } catch (const StudyError& e) {
        EXPECT_NE(std::string(e.what()).find("'c' has 2 values"), std::string::npos) << e.what();
    }
}

TEST(DesignGeneration, HypercubeUsesEachStratumOnce) {
    const long long n = 17;
    auto d = generateDesigns(hypercube(n, 42, {bounded("x", -1, 3), bounded("y", 0, 1),
                                              bounded("i", 1, 17, ParamType::Integer),
                                              listed("k", {5})}));
    ASSERT_EQ(d.size(), static_cast<std::size_t>(n));
    std::set<long long> xs, ys, is;
    for (const Design& design : d) {
        double x = design.values[0].real, y = design.values[1].real;
        ASSERT_GE(x, -1);
        ASSERT_LT(x, 3);
        xs.insert(static_cast<long long>((x + 1) / 4 * n));
        ys.insert(static_cast<long long>(y * n));
        is.insert(design.values[2].integer);
        EXPECT_EQ(design.values[3].real, 5);  // a constant stays put
    }
    EXPECT_EQ(xs.size(), static_cast<std::size_t>(n));
    EXPECT_EQ(ys.size(), static_cast<std::size_t>(n));
    // 17 strata over the 17 integers 1..17: every one, bounds included.
    EXPECT_EQ(is.size(), 17u);
    EXPECT_EQ(*is.begin(), 1);
    EXPECT_EQ(*is.rbegin(), 17);
}

TEST(DesignGeneration, HypercubeIsReproducibleBySeed) {
    auto params = std::vector<Parameter>{bounded("x", 0, 1), listed("l", {1, 2, 3, 4})};
    auto a = generateDesigns(hypercube(8, 7, params));
    auto b = generateDesigns(hypercube(8, 7, params));
    auto c = generateDesigns(hypercube(8, 8, params));
    std::multiset<double> levels;
    bool differ = false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(a[i].values[0].real, b[i].values[0].real);
        EXPECT_EQ(a[i].values[1].real, b[i].values[1].real);
        differ = differ || a[i].values[0].real != c[i].values[0].real;
        levels.insert(a[i].values[1].real);
    }
    EXPECT_TRUE(differ) << "another seed gave the same designs";
    // 8 strata over 4 listed values: each value twice.
    for (double v : {1.0, 2.0, 3.0, 4.0}) EXPECT_EQ(levels.count(v), 2u) << v;
}

TEST(ValueFormat, FollowsThePrintFormat) {
    auto fmt = [](const Value& v, const std::string& f) {
        std::string out, error;
        EXPECT_TRUE(formatValue(v, f, out, error)) << f << ": " << error;
        return out;
    };
    EXPECT_EQ(fmt(Value::ofReal(0.1), "Default"), "0.1");
    EXPECT_EQ(fmt(Value::ofReal(0.1), ""), "0.1");
    EXPECT_EQ(fmt(Value::ofReal(1234.5), "%g"), "1234.5");
    EXPECT_EQ(fmt(Value::ofReal(2.0), "%8.3f"), "   2.000");
    EXPECT_EQ(fmt(Value::ofReal(2.5), "x=%d%%"), "x=3%");
    EXPECT_EQ(fmt(Value::ofReal(-2.5), "%ld"), "-3");
    EXPECT_EQ(fmt(Value::ofInteger(255), "%04X"), "00FF");
    EXPECT_EQ(fmt(Value::ofInteger(3), "%.2e"), "3.00e+00");
    EXPECT_EQ(fmt(Value::ofReal(1e300), "%s"), "1e+300");
    EXPECT_EQ(fmt(Value::ofText("steel"), "%-7s|"), "steel  |");
}

TEST(ValueFormat, RefusesFormatsThatDontFit) {
    for (const auto& [value, format] : std::vector<std::pair<Value, std::string>>{
             {Value::ofText("steel"), "%g"},
             {Value::ofReal(1), "%d %d"},
             {Value::ofReal(1), "abc"},
             {Value::ofReal(1), "%"},
             {Value::ofReal(1), "%n"},
             {Value::ofReal(1), "%*d"},
             {Value::ofReal(1), "%99999d"},
             {Value::ofReal(1e30), "%d"},
         }) {
        std::string out, error;
        EXPECT_FALSE(formatValue(value, format, out, error)) << format << " gave " << out;
        EXPECT_FALSE(error.empty()) << format;
    }
}

}  // namespace

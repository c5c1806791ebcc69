// Response surfaces: the edge cases of the weighted mean, an independent
// computation in long double (the nu = 2 path among them), validation and
// handles.
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

class Resp : public ZuFreshState {
protected:
    int surface(int dims, int responses, std::vector<double> gsize, double alpha, double nu)
    {
        int h = -5;
        EXPECT_EQ(ZU_respCreate(&h, dims, responses, gsize.data(), alpha, nu), 0);
        return h;
    }
    static std::vector<double> surf(int h, std::vector<double> at, size_t responses)
    {
        std::vector<double> out(responses, -1);
        EXPECT_EQ(ZU_respSurf(h, at.data(), out.data()), 0);
        return out;
    }
    static std::string messages()
    {
        std::string out;
        int index = 1;
        while (ZU_ErrRec *rec = ZU_errNext("*", &index))
            out += std::string(rec->routine) + " " + std::to_string(rec->number) + "/" +
                   std::to_string(rec->severity) + ": " + rec->message + "|";
        return out;
    }
};

TEST_F(Resp, EdgeCasesOfTheWeightedMean)
{
    int h = surface(2, 2, {1, 2}, 1.0, 1.0);
    EXPECT_EQ(surf(h, {3, 4}, 2), (std::vector<double>{0, 0}));  // no samples
    const double p[2] = {0, 0}, v[2] = {5, -7};
    ASSERT_EQ(ZU_respAddPoint(h, p, v), 0);
    EXPECT_EQ(surf(h, {3, 4}, 2), (std::vector<double>{5, -7}));  // one sample anywhere
    EXPECT_EQ(surf(h, {800, 0}, 2), (std::vector<double>{0, 0}));  // its weight underflows
    const double q[2] = {2, 0}, w[2] = {1, 1};
    ASSERT_EQ(ZU_respAddPoint(h, q, w), 0);
    EXPECT_EQ(surf(h, {1, 3}, 2), (std::vector<double>{3, -3}));  // equal distances: the mean
    double d = -1, c = -1;
    EXPECT_EQ(ZU_respNorm(h, q, q, &d), 0);
    EXPECT_EQ(ZU_respCorr(h, q, q, &c), 0);
    EXPECT_EQ(d, 0.0);
    EXPECT_EQ(c, 1.0);
    const double r[2] = {5, 8};
    EXPECT_EQ(ZU_respNorm(h, q, r, &d), 0);
    EXPECT_DOUBLE_EQ(d, 5.0);  // (3/1, 8/2)
    EXPECT_EQ(messages(), "");
}

TEST_F(Resp, MatchesAnIndependentComputation)
{
    struct Shape {
        int dims, responses;
    };
    for (double nu : {0.7, 1.5, 2.0}) {
        for (Shape shape : {Shape{3, 2}, Shape{3, 1}, Shape{7, 1}}) {
            const int dims = shape.dims, m = shape.responses, n = 300;
            std::vector<double> g;
            for (int j = 0; j < dims; ++j)
                g.push_back(0.5 + j % 3);
            const double alpha = 0.8;
            int h = surface(dims, m, g, alpha, nu);
            int32_t seed = 99;
            auto draw = [&](int count, double scale) {
                std::vector<double> v;
                for (int j = 0; j < count; ++j)
                    v.push_back(scale * ZU_rand(&seed));
                return v;
            };
            std::vector<std::vector<double>> pos, val;
            for (int i = 0; i < n; ++i) {
                pos.push_back(draw(dims, 4));
                val.push_back(draw(m, 10));
                ASSERT_EQ(ZU_respAddPoint(h, pos.back().data(), val.back().data()), 0);
            }
            for (int k = 0; k < 10; ++k) {
                std::vector<double> at = draw(dims, 4);
                std::vector<long double> sum(m, 0);
                long double total = 0;
                for (int i = 0; i < n; ++i) {
                    long double s = 0;
                    for (int j = 0; j < dims; ++j)
                        s += std::pow((at[j] - pos[i][j]) / (long double)g[j], 2.0L);
                    long double w = std::exp(-alpha * std::pow(std::sqrt(s), (long double)nu));
                    for (int j = 0; j < m; ++j)
                        sum[j] += w * val[i][j];
                    total += w;
                }
                std::vector<double> got = surf(h, at, m);
                for (int j = 0; j < m; ++j)
                    EXPECT_NEAR(got[j], double(sum[j] / total), 1e-11) << nu << " " << dims << " " << m;
            }
            ZU_respDelete(h);
        }
    }
}

TEST_F(Resp, CreationIsRefusedInOrder)
{
    struct Case {
        int dims, responses;
        std::vector<double> gsize;
        double alpha, nu;
        const char *text;
    };
    const std::vector<Case> cases = {
        {0, 0, {}, 0, 0, "invalid number of dimensions (must be > 0)"},
        {1, 0, {0}, 0, 0, "invalid number of responses (must be > 0)"},
        {2, 1, {1, 0}, 0, 0, "invalid 'gsize' (each grid interval must be >0.0)"},
        {1, 1, {NAN}, 1, 1, "invalid 'gsize' (each grid interval must be >0.0)"},
        {1, 1, {1}, 0, 0, "invalid 'alpha' (must be >0.0)"},
        {1, 1, {1}, INFINITY, 1, "invalid 'alpha' (must be >0.0)"},
        {1, 1, {1}, 1, 0, "invalid 'nu' (must be >0.0)"},
    };
    for (const Case &c : cases) {
        ZU_errClear("*", 0);
        int h = 42;
        EXPECT_EQ(ZU_respCreate(&h, c.dims, c.responses, c.gsize.data(), c.alpha, c.nu), ZU_RESP_BAD_ARGUMENT);
        EXPECT_EQ(h, 42);
        EXPECT_EQ(messages(), std::string("ZU_respCreate 1/3: ") + c.text + "|");
    }
}

TEST_F(Resp, HandlesAreCheckedAndReused)
{
    int a = surface(1, 1, {1}, 1, 1), b = surface(1, 1, {1}, 1, 1);
    EXPECT_EQ(ZU_respDelete(a), 0);
    double x = 0, out = 0;
    EXPECT_EQ(ZU_respSurf(a, &x, &out), ZU_RESP_BAD_HANDLE);
    EXPECT_EQ(ZU_respAddPoint(-1, &x, &x), ZU_RESP_BAD_HANDLE);
    EXPECT_EQ(ZU_respCorr(b, &x, nullptr, &out), ZU_RESP_BAD_ARGUMENT);
    EXPECT_EQ(messages(), "ZU_respSurf 2/3: handle is not valid|ZU_respAddPoint 2/3: handle is not valid|"
                          "ZU_respCorr 1/3: Invalid pointer|");
    EXPECT_EQ(surface(1, 1, {1}, 1, 1), a);
}

extern "C" int zu_respsurf_ref_(const int *, const double *, double *, int *);

TEST_F(Resp, ByReferenceFormsTakeEveryArgumentByAddress)
{
    int h = -1, rc = -1, dims = 2, responses = 1;
    const double g[2] = {1, 1}, alpha = 1, nu = 2, p[2] = {1, 1}, v = 4;
    ASSERT_EQ(ZU_respCreate_ref(&h, &dims, &responses, g, &alpha, &nu, &rc), 0);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(ZU_respAddPoint_ref(&h, p, &v, &rc), 0);
    double out = 0;
    EXPECT_EQ(zu_respsurf_ref_(&h, p, &out, &rc), 0);
    EXPECT_EQ(out, 4.0);
    EXPECT_EQ(ZU_respCreate_ref(&h, nullptr, &responses, g, &alpha, &nu, &rc), ZU_RESP_BAD_ARGUMENT);
    EXPECT_EQ(rc, ZU_RESP_BAD_ARGUMENT);
}

} // namespace

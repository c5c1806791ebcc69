/* Writes an SDF file through the C library with one variable of every type
 * and ranks 1 to 3, whose values follow formulas the Python tests recompute:
 * element (i, j, k) of an array of extents (d1, d2, d3) is
 * i + 10 * j + 100 * k (first index fastest). Usage: write_fixture PATH */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "sdf.h"

static int fail(const char *what, int rc)
{
    fprintf(stderr, "write_fixture: %s gave %d\n", what, rc);
    return 1;
}

#define CHECK(call)                      \
    do {                                 \
        int rc_ = (call);                \
        if (rc_ != 0) return fail(#call, rc_); \
    } while (0)

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: write_fixture PATH\n");
        return 2;
    }
    int ch = 0;
    CHECK(Sdf_Open(&ch, argv[1], "BINARY", "NEW", "WRITE"));

    int32_t i4 = -7;
    int64_t i8 = 5000000000LL;
    int32_t lg = 1;
    float r4 = 1.5f;
    double r8 = 3.25;
    float c8[2] = {1.0f, -2.0f};
    double c16[2] = {0.5, 4.0};
    CHECK(Sdf_Write_Var(ch, "s_int", SDF_INT_T, &i4, "m", "an int"));
    CHECK(Sdf_Write_Var(ch, "s_int64", SDF_INT64_T, &i8, "", ""));
    CHECK(Sdf_Write_Var(ch, "s_log", SDF_LOG_T, &lg, "", ""));
    CHECK(Sdf_Write_Var(ch, "s_real", SDF_REAL_T, &r4, "s", ""));
    CHECK(Sdf_Write_Var(ch, "s_dble", SDF_DBLE_T, &r8, "kg", "a double"));
    CHECK(Sdf_Write_Var(ch, "s_cmpx", SDF_CMPX_T, c8, "", ""));
    CHECK(Sdf_Write_Var(ch, "s_dcmpx", SDF_DCMPX_T, c16, "", ""));
    CHECK(Sdf_Write_Char(ch, "s_text", "hello world", "a text"));

    /* Arrays: a_<type>_<rank>, extents 4, 4x3, 4x3x2. */
    enum { N = 24 };
    int32_t vi4[N], vlg[N];
    int64_t vi8[N];
    float vr4[N], vc8[2 * N];
    double vr8[N], vc16[2 * N];
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 4; ++i) {
                int n = i + 4 * j + 12 * k;
                int v = i + 10 * j + 100 * k;
                vi4[n] = v;
                vi8[n] = (int64_t)v * 1000000000LL;
                vlg[n] = v % 3 == 0;
                vr4[n] = (float)v + 0.5f;
                vr8[n] = v + 0.25;
                vc8[2 * n] = (float)v;
                vc8[2 * n + 1] = (float)-v;
                vc16[2 * n] = v;
                vc16[2 * n + 1] = 0.5 * v;
            }
    struct { const char *tag; int type; const void *data; } arrays[] = {
        {"int", SDF_INT_T, vi4},    {"int64", SDF_INT64_T, vi8}, {"log", SDF_LOG_T, vlg},
        {"real", SDF_REAL_T, vr4},  {"dble", SDF_DBLE_T, vr8},   {"cmpx", SDF_CMPX_T, vc8},
        {"dcmpx", SDF_DCMPX_T, vc16},
    };
    const int32_t shapes[3][4] = {{1, 4}, {2, 4, 3}, {3, 4, 3, 2}};
    const int counts[3] = {4, 12, 24};
    for (size_t a = 0; a < sizeof arrays / sizeof arrays[0]; ++a)
        for (int r = 0; r < 3; ++r) {
            char name[64];
            snprintf(name, sizeof name, "a_%s_%d", arrays[a].tag, r + 1);
            CHECK(Sdf_Define_Array(ch, name, arrays[a].type, 0, shapes[r], "N", "array"));
            int32_t start[4] = {r + 1, 0, 0, 0}; /* rank, then indices */
            /* Rank 1 and 2 take the first elements of the rank-3 layout,
             * which keeps the formula: element (i, j) is element (i, j, 0). */
            CHECK(Sdf_Write_Array(ch, name, arrays[a].data, start, counts[r]));
        }

    char *text[6] = {"alpha", "be", "", "delta four", "e", "f"};
    const int32_t tdims[3] = {2, 2, 3};
    CHECK(Sdf_Define_Array(ch, "a_char_2", SDF_CHAR_T, 10, tdims, "", "texts"));
    int32_t tstart[3] = {2, 0, 0};
    CHECK(Sdf_Write_Carray(ch, "a_char_2", text, tstart, 6));

    CHECK(Sdf_Close(ch, "KEEP"));
    return 0;
}

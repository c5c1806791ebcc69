/* A plain C caller of the SDF library through sdf.h alone: it creates a
 * file, defines and writes arrays of ranks 1 to 3 (numbers and text), reads
 * them back after a reopen with the by-value forms, lists the names, and
 * deletes the file. Any mismatch ends the program with status 1; the path
 * of the file comes as the first argument. */
#include <stdio.h>
#include <string.h>

#include "sdf.h"

static int failures;

#define CHECK(cond)                                                   \
    do {                                                              \
        if (!(cond)) {                                                \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
            failures++;                                               \
        }                                                             \
    } while (0)

static void write_all(int ch) {
    int32_t v1[4] = {1, 2, 3, 4};
    double v2[6] = {0.5, 1.5, 2.5, 3.5, 4.5, 5.5};
    int64_t v3[8];
    char s0[] = "alpha", s1[] = "be", s2[] = "gamma";
    char *words[3] = {s0, s1, s2};
    for (int n = 0; n < 8; n++) v3[n] = ((int64_t)n << 35) - n;

    CHECK(Sdf_Define_Arr1D(ch, "r1", SDF_INT_T, 0, 4, "m", "rank one") == 0);
    CHECK(Sdf_Define_Arr2D(ch, "r2", SDF_DBLE_T, 0, 3, 2, NULL, NULL) == 0);
    CHECK(Sdf_Define_Arr3D64(ch, "r3", SDF_INT64_T, 0, 2, 2, 2, NULL, NULL) == 0);
    CHECK(Sdf_Define_Arr1D(ch, "words", SDF_CHAR_T, 6, 3, NULL, NULL) == 0);
    CHECK(Sdf_Write_Arr1D(ch, "r1", v1, 0, 4) == 0);
    CHECK(Sdf_Write_Arr2D(ch, "r2", v2, 0, 0, 6) == 0);
    CHECK(Sdf_Write_Arr3D64(ch, "r3", v3, 0, 0, 0, 8) == 0);
    CHECK(Sdf_Write_Carr1D(ch, "words", words, 0, 3) == 0);
    CHECK(Sdf_Write_Arr2D(ch, "r1", v1, 0, 0, 1) == 3000); /* rank 2 on rank 1 */
}

static void read_all(int ch) {
    int32_t i1[4] = {0}, got = 0, dims[8];
    double d2[2] = {0};
    int64_t l3[8], got64 = 0;
    void *p = i1;
    char **words = NULL;

    CHECK(Sdf_Read_Arr1D(ch, "r1", &p, 0, 0, &got) == 0);
    CHECK(got == 4 && i1[0] == 1 && i1[3] == 4);
    p = d2;
    CHECK(Sdf_Read_Arr2D(ch, "r2", &p, 1, 1, 2, &got) == 0); /* elements 4 and 5 */
    CHECK(got == 2 && d2[0] == 4.5 && d2[1] == 5.5);
    p = l3;
    CHECK(Sdf_Read_Arr3D64(ch, "r3", &p, 0, 1, 1, 0, &got64) == 0); /* from element 6 */
    CHECK(got64 == 2 && l3[0] == ((int64_t)6 << 35) - 6 && l3[1] == ((int64_t)7 << 35) - 7);
    CHECK(Sdf_Get_Dims(ch, "r2", dims) == 0);
    CHECK(dims[0] == 2 && dims[1] == 3 && dims[2] == 2 && Sdf_Num_Elem(dims) == 6);
    CHECK(Sdf_Read_Carr1D(ch, "words", &words, 1, 2, &got) == 0);
    CHECK(got == 2 && words && strcmp(words[0], "be") == 0 && strcmp(words[1], "gamma") == 0);
    CHECK(Sdf_Free(words) == 1);
}

static void list_all(int ch) {
    char **names = NULL;
    int count = 0;
    CHECK(Sdf_List(ch, "r*", &names, &count) == 0);
    CHECK(count == 3);
    if (count == 3) CHECK(strcmp(names[0], "r1") == 0 && strcmp(names[2], "r3") == 0);
    CHECK(Sdf_Free(names) == 1);
}

int main(int argc, char **argv) {
    int ch = -1;
    if (argc < 2) {
        fprintf(stderr, "usage: %s file.sdf\n", argv[0]);
        return 2;
    }
    CHECK(Sdf_Open(&ch, argv[1], "BINARY", "FRESH", "WRITE") == 0);
    write_all(ch);
    CHECK(Sdf_Close(ch, "KEEP") == 0);
    CHECK(Sdf_Open(&ch, argv[1], "BINARY", "OLD", "READ") == 0);
    read_all(ch);
    list_all(ch);
    CHECK(Sdf_Close(ch, "DELETE") == 0);
    CHECK(!Sdf_Is_Sdf(argv[1]));
    if (failures) fprintf(stderr, "%d checks failed\n", failures);
    return failures ? 1 : 0;
}

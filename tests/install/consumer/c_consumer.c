/* A C program built outside the tree against the installed package through
 * pkg-config: it writes an SDF file with a 1-D array and a scalar, reads both
 * back after a reopen and deletes the file. Exit 0 only when all of it
 * worked; the path of the file comes as the first argument. */
#include <sdf.h>
#include <stdio.h>
#include <zutil.h>

#define CHECK(cond)                                                        \
    do {                                                                   \
        if (!(cond)) {                                                     \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
            return 1;                                                      \
        }                                                                  \
    } while (0)

int main(int argc, char **argv) {
    double x[4] = {0.25, 1.5, -3.0, 1e300}, back[4] = {0}, t = 273.15, tb = 0;
    void *into = back;
    int ch = -1, nread = 0;
    CHECK(argc == 2);
    CHECK(ZU_version() != NULL && ZU_version()[0] != '\0');
    CHECK(Sdf_Open(&ch, argv[1], "BINARY", "FRESH", "WRITE") == 0);
    CHECK(Sdf_Define_Arr1D(ch, "x", SDF_DBLE_T, 0, 4, "m", "stations") == 0);
    CHECK(Sdf_Write_Arr1D(ch, "x", x, 0, 4) == 0);
    CHECK(Sdf_Write_Var(ch, "t", SDF_DBLE_T, &t, "K", NULL) == 0);
    CHECK(Sdf_Close(ch, "KEEP") == 0);

    CHECK(Sdf_Open(&ch, argv[1], "BINARY", "OLD", "READ") == 0);
    CHECK(Sdf_Read_Arr1D(ch, "x", &into, 0, 4, &nread) == 0 && nread == 4);
    for (int k = 0; k < 4; k++) CHECK(back[k] == x[k]);
    CHECK(Sdf_Get_Val(ch, "t", &tb) == 0 && tb == t);
    CHECK(Sdf_Close(ch, "KEEP") == 0);
    CHECK(Sdf_Open(&ch, argv[1], "BINARY", "OLD", "WRITE") == 0);
    CHECK(Sdf_Close(ch, "DELETE") == 0);
    return 0;
}

/* Proves that zcalc.h is plain C: compiled as C and linked against the
 * library, it converts a unit and checks the answer. */
#include "zcalc.h"

#include <stdio.h>
#include <string.h>

int main(void)
{
    double scale = 0, offset = 0;
    char dims[ZU_UNIT_DIMS_SIZE];
    if (ZU_cvtUnit("km", "m", &scale, &offset) != 0 || scale != 1000 || offset != 0) {
        fprintf(stderr, "failed: km -> m\n");
        return 1;
    }
    if (ZU_unitParse("N", dims, &scale, &offset) != 0 || strcmp(dims, "m.kg.s-2") != 0) {
        fprintf(stderr, "failed: N\n");
        return 1;
    }
    return 0;
}

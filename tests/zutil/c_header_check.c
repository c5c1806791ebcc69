/* Proves that zutil.h is plain C: compiled as C and linked against the
 * library, it calls a few functions and checks their answers. */
#include "zutil.h"

#include <stdio.h>
#include <string.h>

static int check(int ok, const char *what)
{
    if (!ok)
        fprintf(stderr, "failed: %s\n", what);
    return ok ? 0 : 1;
}

int main(void)
{
    int failures = 0;
    unsigned char pattern[ZU_PAT_BUFSIZE];
    ZU_Item *items = NULL;
    ZU_List list;
    ZU_Node node;
    char *path;
    char value[128];

    ZU_init(1);
    failures += check(ZU_patCompile("Var_#", pattern, ZU_PAT_BUFSIZE) == 0, "compile");
    failures += check(ZU_patMatch("Var_12", pattern) == 1, "match");
    failures += check(ZU_parseItems("a = 1.5 [mm]", &items, 2, 0) == 1, "items");
    failures += check(items && items[0].type == ZU_ITEM_REAL && strcmp(items[0].bracket, "mm") == 0,
                      "item fields");
    ZU_freeMem(items);
    path = ZU_absolutePath("/home/u", "a/../b.sdf");
    failures += check(path && strcmp(path, "/home/u/b.sdf") == 0, "absolute path");
    ZU_freeMem(path);
    ZU_listInit(&list);
    ZU_listAddTail(&list, &node);
    failures += check(ZU_listCount(&list) == 1, "list");
    failures += check(ZU_setOpts("Error_Out=None") == 0, "options");
    failures += check(ZU_getOpt("error_out", value) == 0 && strcmp(value, "None") == 0, "get option");
    ZU_Err("main", 1, ZU_SEV_ERROR, "not stored");
    failures += check(ZU_errWorst("*", NULL) == 0, "error out none");
    ZU_close();
    return failures ? 1 : 0;
}
